#pragma once

#include "tools/fleet/CaseData.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace NimaPost {

enum class TableForm : unsigned char { kJsonl, kCsv };

/// "jsonl", "csv": in options and as the ending of files.
std::string_view NameOf(TableForm form);

/// A line of a table, column by column, in the same order in each line. What is empty is null in the one
/// form, and nothing in the other.
class TableRow {
  public:
    explicit TableRow(TableForm form) : form_(form) {}

    void Begin();
    void Text(std::string_view column, std::string_view text);
    void MaybeText(std::string_view column, const std::optional<std::string>& text);
    void Number(std::string_view column, const OptionalNumber& number);
    void Flag(std::string_view column, bool flag);
    void Numbers(std::string_view column, std::span<const std::uint32_t> numbers);
    void End();

    const std::string& Line() const { return line_; }
    /// The names of the columns, where the form has such a line.
    const std::string& Heading() const { return heading_; }

  private:
    /// What stands in front of a value.
    void Column(std::string_view name);
    void Plain(std::string_view value);

    TableForm form_;
    bool first_ = true;
    std::string line_;
    std::string heading_;
};

} // namespace NimaPost
