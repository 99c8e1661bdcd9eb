#pragma once

#include "tools/axis/TimelineEvent.h"
#include "tools/base/Json.h"
#include "tools/base/TimeMarks.h"
#include "tools/names/Names.h"
#include "tools/story/Threads.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// Numbers for texts that occur again and again.
class Index {
  public:
    /// -1 for an empty text.
    std::int64_t Of(std::string_view text);
    Json Texts() const { return texts_; }

  private:
    std::map<std::string, std::size_t> numbers_;
    std::vector<std::string> texts_;
};

struct Row {
    std::optional<std::int64_t> time;
    std::uint64_t order = 0;
    Sureness sureness = Sureness::kExact;
    bool overwritten = false; ///< of a round that its log was writing over
    std::size_t file = 0;     ///< index in the folder's files
    std::int64_t thread = -1;
    std::optional<std::size_t> boot;
    std::optional<std::size_t> process;
    std::int64_t level = -1;
    std::int64_t name = -1;
    std::string text;
    std::vector<std::uint32_t> arguments;
};

/// Gathers the newest events, and never holds many more than asked for.
class Rows {
  public:
    Rows(std::size_t most, const Names& dictionary) : most_(most), threads_(dictionary) {}

    void Take(const TimelineEvent& event);

    /// The rows in the order of time. Call once.
    std::vector<Row>& Sorted();

    std::uint64_t Omitted() const { return taken_ - rows_.size(); }

    Json ThreadsJson() const;

    Index levels;
    Index names;

  private:
    static bool Before(const Row& a, const Row& b);

    /// "level 2" becomes "2"; a name of the dictionary stays as it is.
    static std::string_view LevelDigit(std::string_view level);

    void KeepNewest();

    std::size_t most_;
    std::vector<Row> rows_;
    Threads threads_;
    std::uint64_t taken_ = 0;
};

/// A row in the form that the page expects; times count from the origin.
Json RowJson(const Row& row, std::int64_t origin);

} // namespace NimaPost
