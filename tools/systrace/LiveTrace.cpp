#include "tools/systrace/LiveTrace.h"

#include "catalogue/Marks.h"
#include "tools/systrace/Assembler.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace NimaPost {

namespace {

/// How many entries before the newest are read for the last records, whatever has been written.
constexpr std::uint64_t kTail = 1024;
/// The most entries read at one look, 512 KB.
constexpr std::uint64_t kMostLiveEntries = 1 << 16;
/// This many of the last entries may have been claimed but not stored yet.
constexpr std::uint32_t kUnsettled = 64;
constexpr std::uint32_t kMostSlots = 1 << 24;
/// A record has at most eight entries; an incomplete record this close to the end is still being written.
constexpr std::uint32_t kBeingWritten = 16;

std::uint64_t BytesOf(const SysTraceHeader& header) {
    return SYSTRACE_HEADER_SIZE + std::uint64_t{header.entryCount} * sizeof(SysTraceEntry);
}

/// Reads consecutive slots, past the block's end and on from its front.
std::vector<SysTraceEntry> ReadSlots(const InputFile& file, std::uint32_t slots, std::uint32_t first,
                                     std::uint32_t count) {
    std::vector<SysTraceEntry> entries(count);
    const std::uint32_t upToEnd = std::min(count, slots - first);
    auto* const bytes = reinterpret_cast<char*>(entries.data());
    const std::size_t firstBytes = std::size_t{upToEnd} * sizeof(SysTraceEntry);
    const std::size_t allBytes = std::size_t{count} * sizeof(SysTraceEntry);
    const std::uint64_t offset = SYSTRACE_HEADER_SIZE + std::uint64_t{first} * sizeof(SysTraceEntry);
    // What was cut off meanwhile stays zero, as if it had never been stored.
    file.ReadAt(offset, {bytes, firstBytes});
    file.ReadAt(SYSTRACE_HEADER_SIZE, {bytes + firstBytes, allBytes - firstBytes});
    return entries;
}

} // namespace

const TraceLook& LiveTrace::Look(const Names& names, std::vector<Finding>& notices) {
    look_ = TraceLook();
    const InputFile* file = file_.Look(notices);
    if (file == nullptr) {
        look_.problem = file_.Problem();
    } else if (ReadHeader(*file)) {
        if (generation_ != file_.Generation()) {
            generation_ = file_.Generation();
            claimed_.reset();
            unsettled_.clear();
        }
        CountClaims(notices);
        ReadEntries(*file, names);
        return look_;
    }
    claimed_.reset();
    unsettled_.clear();
    return look_;
}

bool LiveTrace::ReadHeader(const InputFile& file) {
    SysTraceHeader& header = look_.header;
    std::array<char, sizeof(SysTraceHeader)> bytes{};
    const std::size_t got = file.ReadAt(0, bytes);
    std::memcpy(&header, bytes.data(), bytes.size());
    if (got < bytes.size()) {
        look_.problem = file_.ProblemOr(file_.Name() + " ends inside its header, after " +
                                        std::to_string(got) + " bytes.");
    } else if ((header.flags & SYSTRACE_FLAG_FORMATTED) == 0 ||
               std::memcmp(header.magic, Nima::Catalogue::kSysTraceMagic, sizeof(header.magic)) != 0) {
        look_.problem = file_.Name() + " is not formatted.";
    } else if (header.version != SYSTRACE_VERSION || header.headerSize != SYSTRACE_HEADER_SIZE) {
        look_.problem = file_.Name() + " has version " + std::to_string(header.version) +
                        ", which this program does not know.";
    } else if (!std::has_single_bit(header.entryCount) || header.entryCount > kMostSlots ||
               header.indexMask != header.entryCount - 1) {
        look_.problem = "The header of " + file_.Name() + " contradicts itself: entry count " +
                        std::to_string(header.entryCount) + ", index mask " +
                        std::to_string(header.indexMask) + ".";
    } else if (file.Size() < BytesOf(header)) {
        look_.problem = file_.Name() + " is cut: " + std::to_string(file.Size()) + " bytes of " +
                        std::to_string(BytesOf(header)) + ".";
    }
    return look_.problem.empty();
}

void LiveTrace::CountClaims(std::vector<Finding>& notices) {
    const SysTraceHeader& header = look_.header;
    const std::uint32_t claimed = header.wrapCount == -1 ? 0 : header.writeIndex + 1;
    if (claimed_) {
        // The write index continues past 2^32, so only its difference counts.
        const std::uint32_t more = claimed - *claimed_;
        const bool cleared = header.wrapCount < wrapCount_ || more > 0x80000000U;
        look_.newEntries = cleared ? claimed : more;
        if (cleared) {
            unsettled_.clear();
            notices.push_back({"trace-cleared", file_.Name() + " was cleared or formatted again."});
        }
    }
    claimed_ = claimed;
    wrapCount_ = header.wrapCount;
}

void LiveTrace::ReadEntries(const InputFile& file, const Names& names) {
    const SysTraceHeader& header = look_.header;
    const std::uint64_t fresh = look_.newEntries.value_or(0);
    const std::uint64_t inUse = header.wrapCount == 0    ? std::min(*claimed_, header.entryCount)
                                : header.wrapCount == -1 ? 0
                                                         : header.entryCount;
    const auto count =
        static_cast<std::uint32_t>(std::min({std::max(fresh, kTail), kMostLiveEntries, inUse}));
    const std::uint32_t first = (*claimed_ - count) & header.indexMask;
    auto entries = ReadSlots(file, header.entryCount, first, count);
    const auto looked = static_cast<std::uint32_t>(std::min<std::uint64_t>(fresh, count));
    look_.notLookedAt = fresh - looked;
    CountRecords(entries, looked);
    const auto tail = static_cast<std::uint32_t>(std::min<std::uint64_t>(count, kTail));
    entries.erase(entries.begin(), entries.end() - static_cast<std::ptrdiff_t>(tail));
    look_.newest.header = header;
    look_.newest.entryCount = header.entryCount;
    look_.newest.entriesRead = entries.size();
    const ClaimedEntries claimed{std::move(entries), (*claimed_ - tail) & header.indexMask, header.entryCount,
                                 true};
    AssembleSysTrace(look_.newest, claimed, names);
    auto& records = look_.newest.records;
    while (!records.empty() && records.back().state == RecordState::kTorn &&
           ((*claimed_ - records.back().slot) & header.indexMask) <= kBeingWritten) {
        records.pop_back();
    }
}

void LiveTrace::CountRecords(std::span<const SysTraceEntry> entries, std::uint32_t fresh) {
    std::array<std::int64_t, Nima::Catalogue::kComponents> counts{};
    const auto count = [&](std::span<const SysTraceEntry> some, std::int64_t one) {
        for (const SysTraceEntry& entry : some) {
            if ((entry.id & SYSTRACE_CONTINUATION) == 0 && (entry.id != 0 || entry.value != 0)) {
                counts[entry.id >> SYSTRACE_COMPONENT_SHIFT & SYSTRACE_COMPONENT_MASK] += one;
            }
        }
    };
    count(entries.last(fresh), 1);
    const auto before = entries.first(entries.size() - fresh);
    const std::size_t settled = std::min(unsettled_.size(), before.size());
    count(before.last(settled), 1);
    count(std::span(unsettled_).last(settled), -1);
    for (std::size_t i = 0; look_.newEntries && i < counts.size(); ++i) {
        look_.newOfComponent[i] = static_cast<std::uint64_t>(std::max<std::int64_t>(counts[i], 0));
        look_.newRecords += look_.newOfComponent[i];
    }
    const auto last = entries.last(std::min<std::size_t>(entries.size(), kUnsettled));
    unsettled_.assign(last.begin(), last.end());
}

} // namespace NimaPost
