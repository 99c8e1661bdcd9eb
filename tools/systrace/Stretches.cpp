#include "tools/systrace/Stretches.h"

#include "tools/axis/ProcessChange.h"
#include "tools/base/CounterClock.h"

#include <algorithm>

namespace NimaPost {

namespace {

constexpr std::size_t kMostStretches = 1000;

/// Returns how often the stamps of one stretch do not fit one run of the clock. Times are since its first
/// record.
std::uint64_t RunClock(std::span<SysTraceRecord> records) {
    // Processes share the block, and their main threads may share an identifier.
    CounterClock clock({kSecond / 10, kSecond / 1000});
    for (SysTraceRecord& record : records) {
        // A record without any value may be an entry of the previous round that nobody has overwritten.
        if (record.state == RecordState::kTorn && record.values == 0 && clock.Started()) {
            record.elapsed = clock.Near(record.stamp);
        } else {
            record.elapsed =
                clock.Next(record.stamp, record.hasThread ? std::optional(record.thread) : std::nullopt);
        }
    }
    return clock.Breaks();
}

} // namespace

void PartProcesses(SysTraceFile& trace) {
    std::vector<Written> written;
    std::vector<std::uint32_t> records;
    written.reserve(trace.records.size());
    records.reserve(trace.records.size());
    for (std::uint32_t i = 0; i < trace.records.size(); ++i) {
        if (trace.records[i].hasThread) {
            written.push_back({trace.records[i].thread, trace.records[i].stamp});
            records.push_back(i);
        }
    }
    for (const std::size_t place : ProcessChanges(written)) {
        if (trace.stretches.size() < kMostStretches) {
            trace.stretches.push_back(records[place]);
        }
    }
}

void RecoverTimes(SysTraceFile& trace) {
    std::int64_t end = 0;
    for (std::size_t i = 0; i < trace.stretches.size(); ++i) {
        const std::size_t first = trace.stretches[i];
        const std::size_t next =
            i + 1 < trace.stretches.size() ? trace.stretches[i + 1] : trace.records.size();
        const std::span<SysTraceRecord> records = std::span(trace.records).subspan(first, next - first);
        if (records.empty()) {
            continue;
        }
        trace.clockBreaks += RunClock(records);
        const auto byTime = [](const SysTraceRecord& a, const SysTraceRecord& b) {
            return a.elapsed < b.elapsed;
        };
        // A process begins after the one before has ended; how long after, nothing tells.
        const std::int64_t shift =
            i == 0 ? 0 : end - std::min_element(records.begin(), records.end(), byTime)->elapsed;
        for (SysTraceRecord& record : records) {
            record.elapsed += shift;
            record.stretch = static_cast<std::uint16_t>(i);
        }
        end = std::max_element(records.begin(), records.end(), byTime)->elapsed;
    }
}

} // namespace NimaPost
