#include "tools/report/Rows.h"

#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/report/PackedBytes.h"

#include <algorithm>

namespace NimaPost {

namespace {

constexpr std::size_t kLongestText = 2000;
constexpr std::size_t kMostArguments = 16;
/// How a page's row says that its log was writing over it.
constexpr unsigned kOverwrittenBit = 4;

void WriteElement(Output& out, std::string_view name, const std::string& bytes) {
    out.Write("<script type=\"text/plain\" class=\"");
    out.Write(name);
    out.Write("\">");
    out.Write(Packed(bytes));
    out.Write("</script>\n");
}

} // namespace

std::uint64_t TextIndex::Of(std::string_view text) {
    if (text.empty()) {
        return 0;
    }
    auto found = numbers_.find(text);
    if (found == numbers_.end()) {
        texts_.push_back(ToUtf8(text));
        found = numbers_.emplace(text, texts_.size()).first;
    }
    return found->second;
}

void Rows::Take(const TimelineEvent& event) {
    std::string text = ToUtf8(event.text.substr(0, kLongestText));
    text += event.text.size() > kLongestText ? " ..." : "";
    Row row;
    row.time = event.time;
    row.mark = static_cast<std::uint8_t>(static_cast<unsigned>(SurenessOf(event.certainty)) |
                                         (event.mark == kOverwritten ? kOverwrittenBit : 0U));
    row.source = event.file;
    row.boot = event.boot.value_or(0);
    row.process = event.process.value_or(0);
    row.level = levels_.Of(event.kind == EventKind::kBinary ? LevelDigit(event.level) : event.level);
    row.name = names_.Of(event.name);
    row.text = text;
    row.arguments = event.arguments.first(std::min(event.arguments.size(), kMostArguments));
    if (const auto thread = threads_.NumberOf(event)) {
        row.thread = *thread + 1;
    }
    if (blocks_.empty() || blocks_.back().IsFull(row.time)) {
        if (!blocks_.empty()) {
            blocks_.back().Close();
        }
        blocks_.emplace_back();
    }
    blocks_.back().Add(row);
    ++taken_;
    ++count_;
    if (count_ - blocks_.front().Count() >= most_) {
        count_ -= blocks_.front().Count();
        blocks_.pop_front();
    }
}

void Rows::Finish() {
    if (count_ > most_) {
        blocks_.front().DropFront(count_ - most_);
        count_ = most_;
    }
}

std::optional<std::int64_t> Rows::FirstTime() const {
    for (const RowBlock& block : blocks_) {
        if (const auto time = block.FirstTime()) {
            return time;
        }
    }
    return std::nullopt;
}

std::optional<std::uint64_t> Rows::RowOf(std::uint64_t event) const {
    return event >= Omitted() && event < taken_ ? std::optional(event - Omitted()) : std::nullopt;
}

Json Rows::ThreadsJson() const {
    std::vector<Json> byNumber(threads_.Count());
    threads_.ForEach([&](const Threads::Thread& thread) {
        byNumber[thread.number] = {{"id", Hex32(thread.id)},
                                   {"name", thread.name},
                                   {"process", thread.process ? Json(*thread.process) : Json()}};
    });
    return byNumber;
}

void Rows::Write(Output& out, std::int64_t origin) const {
    for (const RowBlock& block : blocks_) {
        WriteElement(out, "columns", block.Columns(origin));
        WriteElement(out, "texts", block.Texts());
    }
}

std::string_view Rows::LevelDigit(std::string_view level) {
    TakeLiteral(level, "level ");
    return level;
}

} // namespace NimaPost
