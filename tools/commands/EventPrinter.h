#pragma once

#include "tools/axis/TimelineEvent.h"
#include "tools/base/TimePrinter.h"
#include "tools/commands/Commands.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// "text", "binary", "ring", "record" or "crash".
std::string_view KindName(const TimelineEvent& event);

/// An event for programs, doc/nima-post-json.md.
Json EventJson(const TimelineEvent& event, bool hasWall, const std::string& file);

/// Prints events one below the other in any of the formats. What stands around them in a JSON object is up to
/// the command.
class EventPrinter {
  public:
    /// `files`: by the numbers that events have.
    EventPrinter(Context& context, std::vector<std::string> files, bool hasWall);

    /// The heading of a table, if the format has one. Several devices share it.
    void Begin();
    /// In JSON an element of the document's array; each a line of its own without a document.
    void Print(const TimelineEvent& event, JsonDocument* document);

  private:
    void AppendText(std::string& out, const TimelineEvent& event);
    void AppendShort(std::string& out, const TimelineEvent& event) const;
    void AppendCsv(std::string& out, const TimelineEvent& event) const;

    Context& context_;
    std::vector<std::string> files_;
    bool hasWall_;
    std::size_t fileWidth_ = 0;
    TimePrinter times_;
};

} // namespace NimaPost
