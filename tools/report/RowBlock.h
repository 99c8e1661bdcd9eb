#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

struct Row {
    std::optional<std::int64_t> time;
    std::uint8_t mark = 0; ///< how sure the time is, and whether its log was writing over the line
    std::uint64_t source = 0;
    std::uint64_t boot = 0; ///< and process: from 1, 0 where not known
    std::uint64_t process = 0;
    /// Numbers of texts and threads, from 1; 0 where there is none.
    std::uint64_t thread = 0;
    std::uint64_t level = 0;
    std::uint64_t name = 0;
    std::string_view text; ///< UTF-8
    std::span<const std::uint32_t> arguments;
};

/// Rows that follow one another, column by column, as page/model/packed.js takes them apart.
class RowBlock {
  public:
    std::size_t Count() const { return times_.size(); }
    /// Whether a further row with this time is to begin a new block.
    bool IsFull(const std::optional<std::int64_t>& time) const;
    void Add(const Row& row);
    /// Leaves out the oldest rows.
    void DropFront(std::size_t count);
    /// Frees what was reserved for more rows.
    void Close();

    std::optional<std::int64_t> FirstTime() const { return first_; }
    /// What the page needs of all rows at once, and what only of those that are looked at.
    std::string Columns(std::int64_t origin) const;
    std::string Texts() const;

  private:
    bool HasTime(std::size_t row) const;
    void FindFirstTime();

    std::vector<std::int64_t> times_; ///< 0 for a row without a time, which its mark says
    std::optional<std::int64_t> first_;
    std::string marks_;
    std::array<std::string, 6> columns_;
    std::vector<std::uint32_t> bytes_; ///< of each text
    std::string units_;                ///< the lengths of the texts in UTF-16
    std::string text_;                 ///< a line feed after each
    std::string argumentCounts_;
    std::vector<std::uint32_t> arguments_;
};

} // namespace NimaPost
