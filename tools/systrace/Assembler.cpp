#include "tools/systrace/Assembler.h"

#include "tools/systrace/Drafts.h"
#include "tools/systrace/Judgement.h"
#include "tools/systrace/Stretches.h"

#include <algorithm>

namespace NimaPost {

namespace {

void TakeThreads(SysTraceFile& trace) {
    for (SysTraceRecord& record : trace.records) {
        if (record.state == RecordState::kWhole && record.values > 0) {
            --record.values;
            record.thread = trace.values[record.firstValue + record.values];
            record.hasThread = true;
        }
    }
}

/// A dump is taken while others write: what they had begun lacks its end.
void CountUnfinished(SysTraceFile& trace, const Drafts& drafts, const std::vector<std::uint32_t>& lacking) {
    if (!trace.isDump || trace.records.empty()) {
        return;
    }
    const std::int64_t since =
        std::max(trace.records.back().elapsed - kLongestHold, trace.records[trace.stretches.back()].elapsed);
    const auto first = std::find_if(trace.records.begin(), trace.records.end(),
                                    [&](const SysTraceRecord& record) { return record.elapsed >= since; });
    const auto index = static_cast<std::uint32_t>(first - trace.records.begin());
    const auto late = [&](std::uint32_t record) { return record >= index; };
    trace.unfinished = static_cast<std::uint64_t>(std::count_if(lacking.begin(), lacking.end(), late));
    const auto& never = drafts.NeverStored();
    trace.unfinishedEntries = static_cast<std::uint64_t>(std::count_if(
        never.begin(), never.end(), [&](std::uint32_t at) { return at > drafts[index].position; }));
}

} // namespace

void AssembleSysTrace(SysTraceFile& trace, const ClaimedEntries& claimed, const Names& names) {
    const Drafts drafts(trace, claimed, names);
    const std::vector<std::uint32_t> lacking = JudgeRecords(trace, drafts);
    trace.neverStored = drafts.NeverStored().size();
    if (drafts.ThreadEntries()) {
        TakeThreads(trace);
    }
    PartProcesses(trace);
    RecoverTimes(trace);
    CountUnfinished(trace, drafts, lacking);
}

} // namespace NimaPost
