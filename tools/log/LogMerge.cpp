#include "tools/log/LogMerge.h"

#include <algorithm>
#include <limits>

namespace NimaPost {

namespace {

constexpr std::size_t kUnknownBoot = std::numeric_limits<std::size_t>::max();

} // namespace

LogMerge::LogMerge(const std::vector<const LogFile*>& files, const std::vector<std::vector<LogPart>>& logs,
                   const std::vector<LogRun>& runs, const std::vector<LogProcess>& processes,
                   const LineSieve* sieve)
    : processes_(processes) {
    streams_.reserve(logs.size());
    for (const std::vector<LogPart>& parts : logs) {
        streams_.push_back(
            Stream{.cursor = LogCursor(files, parts, runs, logs.size() == 1 ? sieve : nullptr)});
        Advance(streams_.back());
    }
}

const LogEntry* LogMerge::Next() {
    if (current_ != nullptr) {
        Advance(*current_);
    }
    if (current_ == nullptr || current_->ended || current_->key > limit_) {
        Choose();
    }
    return current_ != nullptr ? &current_->entry : nullptr;
}

void LogMerge::Choose() {
    current_ = nullptr;
    for (Stream& stream : streams_) {
        if (!stream.ended && (current_ == nullptr || stream.key < current_->key)) {
            current_ = &stream;
        }
    }
    limit_ = {kUnknownBoot, std::numeric_limits<std::int64_t>::max()};
    for (const Stream& stream : streams_) {
        if (!stream.ended && &stream != current_) {
            limit_ = std::min(limit_, stream.key);
        }
    }
}

void LogMerge::Advance(Stream& stream) {
    if (!stream.cursor.Next()) {
        stream.ended = true;
        return;
    }
    const bool samePart = stream.entry.part == stream.cursor.Entry().part;
    stream.entry = stream.cursor.Entry();
    LogEntry& entry = stream.entry;
    stream.boot = samePart ? stream.boot : BootOf(*entry.part);
    if (stream.boot != 0 && entry.part->processIsKnown &&
        (!entry.part->process || processes_[*entry.part->process].IsDated())) {
        entry.boot = stream.boot;
    }
    if (entry.part->process && entry.part->processIsKnown) {
        const std::size_t process = ProcessOf(entry);
        entry.process = process + 1;
        entry.boot = process == *entry.part->process ? entry.boot : processes_[process].KnownBoot();
    }
    // What has no time goes with the line after it, or, where none of its part has a time, with the one
    // before.
    const Key key{stream.boot != 0 ? stream.boot : kUnknownBoot,
                  entry.hasTime || entry.part->stamped > 0 ? entry.time : stream.key.second};
    stream.key = std::max(stream.key, key);
}

std::size_t LogMerge::ProcessOf(const LogEntry& entry) {
    const LogPart& part = *entry.part;
    const bool byOther = part.othersProcess && entry.line.stamped &&
                         std::binary_search(part.others.begin(), part.others.end(), entry.line.thread);
    return byOther ? *part.othersProcess : *part.process;
}

/// A queue's records are dated; they belong to the last boot that had begun by then.
std::size_t LogMerge::BootOf(const LogPart& part) const {
    if (part.process) {
        return processes_[*part.process].boot;
    }
    std::size_t boot = 0;
    for (const LogProcess& process : processes_) {
        if (process.boot > boot && (boot == 0 || process.First() <= part.queueFirst)) {
            boot = process.boot;
        }
    }
    return boot;
}

} // namespace NimaPost
