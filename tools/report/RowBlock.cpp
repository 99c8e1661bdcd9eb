#include "tools/report/RowBlock.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Varint.h"
#include "tools/report/PackedBytes.h"

#include <algorithm>

namespace NimaPost {

namespace {

constexpr std::size_t kMostRows = 8192;
constexpr std::size_t kMostText = std::size_t{512} << 10;
/// Within a block, a page's numbers hold the nanoseconds from its first time.
constexpr std::int64_t kLongest = std::int64_t{1} << 52;
constexpr char kWithoutTime = 8;

std::size_t Utf16Units(std::string_view text) {
    std::size_t units = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        units += (byte & 0xC0U) != 0x80 ? 1U : 0U;
        units += byte >= 0xF0 ? 1U : 0U;
    }
    return units;
}

/// Times may be any numbers, so that their difference may not be one.
bool AreApart(std::int64_t a, std::int64_t b) {
    const auto [low, high] = std::minmax(a, b);
    return static_cast<std::uint64_t>(high) - static_cast<std::uint64_t>(low) >
           static_cast<std::uint64_t>(kLongest);
}

} // namespace

bool RowBlock::IsFull(const std::optional<std::int64_t>& time) const {
    return Count() >= kMostRows || text_.size() >= kMostText || (first_ && time && AreApart(*first_, *time));
}

void RowBlock::Add(const Row& row) {
    times_.push_back(row.time.value_or(0));
    first_ = first_ ? first_ : row.time;
    marks_ += static_cast<char>(row.mark | (row.time ? 0 : kWithoutTime));
    const std::array values{row.source, row.thread, row.level, row.name, row.process, row.boot};
    for (std::size_t i = 0; i < values.size(); ++i) {
        AppendVarint(columns_[i], values[i]);
    }
    bytes_.push_back(static_cast<std::uint32_t>(row.text.size()));
    AppendVarint(units_, Utf16Units(row.text));
    text_ += row.text;
    text_ += '\n';
    argumentCounts_ += static_cast<char>(row.arguments.size());
    arguments_.insert(arguments_.end(), row.arguments.begin(), row.arguments.end());
}

void RowBlock::DropFront(std::size_t count) {
    std::size_t text = count;
    std::size_t arguments = 0;
    for (std::size_t i = 0; i < count; ++i) {
        text += bytes_[i];
        arguments += static_cast<unsigned char>(argumentCounts_[i]);
    }
    const auto most = static_cast<std::ptrdiff_t>(count);
    times_.erase(times_.begin(), times_.begin() + most);
    bytes_.erase(bytes_.begin(), bytes_.begin() + most);
    marks_.erase(0, count);
    FindFirstTime();
    argumentCounts_.erase(0, count);
    for (std::string& column : columns_) {
        DropVarints(column, count);
    }
    DropVarints(units_, count);
    text_.erase(0, text);
    arguments_.erase(arguments_.begin(), arguments_.begin() + static_cast<std::ptrdiff_t>(arguments));
}

void RowBlock::Close() {
    times_.shrink_to_fit();
    bytes_.shrink_to_fit();
    arguments_.shrink_to_fit();
    for (std::string* const bytes : {&marks_, &units_, &text_, &argumentCounts_}) {
        bytes->shrink_to_fit();
    }
    for (std::string& column : columns_) {
        column.shrink_to_fit();
    }
}

bool RowBlock::HasTime(std::size_t row) const {
    return (marks_[row] & kWithoutTime) == 0;
}

void RowBlock::FindFirstTime() {
    first_.reset();
    for (std::size_t i = 0; i < Count() && !first_; ++i) {
        first_ = HasTime(i) ? std::optional(times_[i]) : std::nullopt;
    }
}

std::string RowBlock::Columns(std::int64_t origin) const {
    std::string out;
    AppendVarint(out, Count());
    std::int64_t last = first_.value_or(origin);
    const std::int64_t start = last - origin;
    const std::int64_t below = Modulo(start, kSecond);
    AppendSignedVarint(out, (start - below) / kSecond);
    AppendVarint(out, static_cast<std::uint64_t>(below));
    for (std::size_t i = 0; i < Count(); ++i) {
        const std::int64_t time = HasTime(i) ? times_[i] : last;
        AppendSignedVarint(out, time - last);
        last = time;
    }
    out += marks_;
    for (const std::string& column : columns_) {
        out += column;
    }
    return out;
}

std::string RowBlock::Texts() const {
    std::string out = units_ + argumentCounts_;
    for (const std::uint32_t argument : arguments_) {
        AppendVarint(out, argument);
    }
    out += text_;
    return out;
}

} // namespace NimaPost
