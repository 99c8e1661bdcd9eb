#include "tools/report/Rows.h"

#include "tools/base/Json.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <utility>

namespace NimaPost {

namespace {

constexpr std::size_t kLongestText = 2000;
constexpr std::size_t kMostArguments = 16;
/// How a page's row says that its log was writing over it.
constexpr int kOverwrittenBit = 4;

} // namespace

std::int64_t Index::Of(std::string_view text) {
    if (text.empty()) {
        return -1;
    }
    const auto [found, fresh] = numbers_.try_emplace(std::string(text), numbers_.size());
    if (fresh) {
        texts_.push_back(ToUtf8(text));
    }
    return static_cast<std::int64_t>(found->second);
}

void Rows::Take(const TimelineEvent& event) {
    Row row;
    row.time = event.time;
    row.order = taken_++;
    row.sureness = SurenessOf(event.certainty);
    row.overwritten = event.mark == kOverwritten;
    row.file = event.file;
    row.boot = event.boot;
    row.process = event.process;
    row.level = levels.Of(event.kind == EventKind::kBinary ? LevelDigit(event.level) : event.level);
    row.name = names.Of(event.name);
    row.text = ToUtf8(event.text.substr(0, kLongestText));
    row.text += event.text.size() > kLongestText ? " ..." : "";
    row.arguments.assign(event.arguments.begin(), event.arguments.end());
    if (row.arguments.size() > kMostArguments) {
        row.arguments.resize(kMostArguments);
    }
    if (const auto thread = threads_.NumberOf(event)) {
        row.thread = static_cast<std::int64_t>(*thread);
    }
    rows_.push_back(std::move(row));
    if (rows_.size() >= most_ * 2 + 1) {
        KeepNewest();
    }
}

std::vector<Row>& Rows::Sorted() {
    KeepNewest();
    std::sort(rows_.begin(), rows_.end(), [](const Row& a, const Row& b) { return Before(a, b); });
    return rows_;
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

bool Rows::Before(const Row& a, const Row& b) {
    const auto key = [](const Row& row) { return std::pair(row.time.value_or(INT64_MAX), row.order); };
    return key(a) < key(b);
}

std::string_view Rows::LevelDigit(std::string_view level) {
    TakeLiteral(level, "level ");
    return level;
}

void Rows::KeepNewest() {
    if (rows_.size() > most_) {
        const auto cut = rows_.end() - static_cast<std::ptrdiff_t>(most_);
        std::nth_element(rows_.begin(), cut, rows_.end(), Before);
        rows_.erase(rows_.begin(), cut);
    }
}

Json RowJson(const Row& row, std::int64_t origin) {
    Json arguments = Json::array();
    for (const std::uint32_t value : row.arguments) {
        arguments.push_back(Hex(value));
    }
    return Json::array({row.time ? Json(*row.time - origin) : Json(),
                        static_cast<int>(row.sureness) + (row.overwritten ? kOverwrittenBit : 0), row.file,
                        row.thread, row.level, row.name, row.text, arguments, row.process.value_or(0),
                        row.boot.value_or(0)});
}

} // namespace NimaPost
