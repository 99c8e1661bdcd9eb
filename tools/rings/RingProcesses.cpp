#include "tools/rings/RingProcesses.h"

#include "catalogue/OwnEvents.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <span>
#include <string>
#include <unordered_map>

namespace NimaPost {

namespace {

std::span<RingRecord> StretchOf(Ring& ring, std::size_t index) {
    const std::size_t first = ring.stretches[index];
    const std::size_t end =
        index + 1 < ring.stretches.size() ? ring.stretches[index + 1] : ring.records.size();
    return std::span(ring.records).subspan(first, end - first);
}

} // namespace

std::optional<std::uint32_t> RingSet::Writer() const {
    const auto own = std::find_if(rings.begin(), rings.end(), [](const Ring& ring) {
        return ring.index == Nima::Catalogue::kOwnRing && !ring.records.empty();
    });
    return own != rings.end() ? std::optional(own->records.back().data.threadId) : std::nullopt;
}

void TellProcesses(RingSet& set, Findings& findings) {
    set.processes = 1;
    std::size_t parted = 0;
    for (const Ring& ring : set.rings) {
        set.processes = std::max(set.processes, ring.stretches.size());
        parted += ring.stretches.size() > 1 ? 1 : 0;
    }
    if (set.processes == 1) {
        return;
    }
    // The newest stretch of a ring is of the newest process, unless that never wrote there: then its threads
    // are those of an earlier one in the rings that several have used.
    std::unordered_map<std::uint32_t, std::size_t> processOf;
    for (const bool several : {true, false}) {
        for (Ring& ring : set.rings) {
            if ((ring.stretches.size() > 1) != several) {
                continue;
            }
            for (std::size_t i = 0; i < ring.stretches.size(); ++i) {
                std::size_t process = set.processes - ring.stretches.size() + i;
                const auto records = StretchOf(ring, i);
                for (const RingRecord& record : records) {
                    const auto known = processOf.find(record.data.threadId);
                    process = !several && known != processOf.end() ? known->second : process;
                }
                for (RingRecord& record : records) {
                    record.process = static_cast<std::uint16_t>(process);
                    processOf.try_emplace(record.data.threadId, process);
                }
            }
        }
    }
    findings.Remark("process-change",
                    std::to_string(set.processes) + " processes used the rings one after the other: in " +
                        Counted(parted, "ring") +
                        " every thread changes at one place. Whether the device restarted there, and how "
                        "long that took, nothing here shows.");
}

Succession ThreadsOf(const RingSet& set) {
    Succession threads(set.processes);
    for (const Ring& ring : set.rings) {
        for (const RingRecord& record : ring.records) {
            threads.at(record.process).insert(record.data.threadId);
        }
    }
    return threads;
}

} // namespace NimaPost
