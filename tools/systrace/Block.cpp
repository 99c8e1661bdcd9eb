#include "catalogue/Marks.h"
#include "tools/base/Text.h"
#include "tools/systrace/Assembler.h"
#include "tools/systrace/SysTrace.h"
#include "tools/words/SetAside.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <utility>

namespace NimaPost {

namespace {

using Nima::Catalogue::kSysTraceMagic;

/// Sixteen times what the library makes; if a header claims more, only this much is read.
constexpr std::uint64_t kMostEntries = std::uint64_t{1} << 24;
constexpr std::uint32_t kNoIndex = 0xFFFFFFFF;

template <typename Struct>
bool ReadStruct(const InputFile& file, std::uint64_t offset, Struct& out) {
    std::array<char, sizeof(Struct)> bytes{};
    if (file.ReadAt(offset, bytes) < bytes.size()) {
        return false;
    }
    std::memcpy(&out, bytes.data(), bytes.size());
    return true;
}

bool IsDumpFront(std::string_view front) {
    SysTraceDumpHeader header{};
    if (front.size() < sizeof(header)) {
        return false;
    }
    std::memcpy(&header, front.data(), sizeof(header));
    return header.magic == SYSTRACE_DUMP_MAGIC;
}

/// The entry count, from fields that should agree: the majority decides.
std::uint32_t EntryCount(const SysTraceHeader& header, Findings& findings) {
    const std::uint64_t fromMask = std::uint64_t{header.indexMask} + 1;
    const std::uint64_t fromSize = header.bufferSize > SYSTRACE_HEADER_SIZE
                                       ? (header.bufferSize - SYSTRACE_HEADER_SIZE) / sizeof(SysTraceEntry)
                                       : 0;
    std::uint64_t count = header.entryCount;
    if (count != fromMask || count != fromSize) {
        findings.Damage("header-contradiction", "The header contradicts itself: entry count " +
                                                    std::to_string(header.entryCount) + ", index mask " +
                                                    Hex(header.indexMask) + ", buffer size " +
                                                    std::to_string(header.bufferSize) + ".");
        if (fromMask == fromSize) {
            count = fromMask;
        }
    }
    if (count == 0 || count > kMostEntries || !std::has_single_bit(count)) {
        findings.Damage("entry-count", "The entry count " + std::to_string(count) + " cannot be right.");
        count = count == 0 ? 1 : std::min(std::bit_ceil(count), kMostEntries);
    }
    return static_cast<std::uint32_t>(count);
}

/// Which slots were claimed: how many, and the oldest.
void ClaimedRange(const SysTraceHeader& header, ClaimedEntries& claimed, std::uint32_t& count,
                  Findings& findings) {
    claimed.firstSlot = 0;
    count = 0;
    if (header.wrapCount < -1) {
        findings.Damage("wrap-count", "The wrap count " + std::to_string(header.wrapCount) +
                                          " cannot be right; read as wrapped.");
    }
    if (header.wrapCount == -1) {
        return;
    }
    if (header.wrapCount == 0) {
        const std::uint64_t stored = std::uint64_t{header.writeIndex} + 1;
        count = static_cast<std::uint32_t>(std::min<std::uint64_t>(stored, claimed.slots));
        if (stored > claimed.slots && header.writeIndex != kNoIndex) {
            findings.Remark("index-past-end",
                            "The write index is past the end of a block that says it has not wrapped; its "
                            "entries are read in slot order.");
        }
        if (header.writeIndex == kNoIndex) {
            count = 0;
        }
        return;
    }
    claimed.wrapped = true;
    claimed.firstSlot = (header.writeIndex + 1) & (claimed.slots - 1);
    count = claimed.slots;
}

void ReadEntries(const InputFile& file, std::uint64_t offset, std::uint32_t count, ClaimedEntries& claimed,
                 Findings& findings) {
    const std::uint64_t present = file.Size() > offset ? (file.Size() - offset) / sizeof(SysTraceEntry) : 0;
    std::vector<char> bytes(static_cast<std::size_t>(std::min<std::uint64_t>(present, claimed.slots)) *
                            sizeof(SysTraceEntry));
    const std::size_t inFile = file.ReadAt(offset, bytes) / sizeof(SysTraceEntry);
    const std::uint32_t upToEnd = std::min(count, claimed.slots - claimed.firstSlot);
    // From the oldest slot to the block's end, then on from its front, as far as the file has them.
    for (const auto& [first, slots] : {std::pair(claimed.firstSlot, upToEnd), {0U, count - upToEnd}}) {
        const std::size_t begin = std::min<std::size_t>(first, inFile);
        const std::size_t end = std::min<std::size_t>(std::size_t{first} + slots, inFile);
        const std::size_t before = claimed.entries.size();
        if (end > begin) {
            claimed.entries.resize(before + end - begin);
            std::memcpy(claimed.entries.data() + before, bytes.data() + begin * sizeof(SysTraceEntry),
                        (end - begin) * sizeof(SysTraceEntry));
        }
    }
    const std::size_t missing = count - claimed.entries.size();
    if (missing > 0) {
        findings.Damage("file-cut", "The file is cut: " + Counted(missing, "claimed entry") + " of " +
                                        std::to_string(count) + " are not in it.");
        // What is left runs from the oldest slot present to the file's end, then on from slot 0.
        claimed.firstSlot = claimed.firstSlot < inFile ? claimed.firstSlot : 0;
        claimed.slots = std::max<std::uint32_t>(1, static_cast<std::uint32_t>(inFile));
    }
}

void ReportProcesses(const SysTraceFile& trace, Findings& findings) {
    constexpr std::size_t kMostNamed = 8;
    if (trace.stretches.size() < 2) {
        return;
    }
    std::string slots;
    for (std::size_t i = 1; i < trace.stretches.size() && i <= kMostNamed; ++i) {
        slots += (i > 1 ? ", " : "") + std::to_string(trace.records[trace.stretches[i]].slot);
    }
    slots += trace.stretches.size() > kMostNamed + 1 ? " and others" : "";
    findings.Remark("process-change",
                    std::to_string(trace.stretches.size()) +
                        " processes wrote one after the other: every thread changes in front of slot " +
                        slots +
                        ". Whether the device restarted there, and how long that took, nothing here shows.");
}

void ReportFilter(const SysTraceFile& trace, const ClaimedEntries& claimed, Findings& findings) {
    const Tracing tracing = TracingOf(trace.header, trace.isDump);
    if (tracing == Tracing::kOn) {
        return;
    }
    const std::string closed = "The filter lets nothing through, and ";
    findings.Remark("filter-cleared",
                    tracing == Tracing::kOff
                        ? closed +
                              "none is set aside: nothing is traced until levels are opened. They were "
                              "closed, or dumps that overlapped or were killed have lost the filter."
                        : closed +
                              "one is set aside: nothing is traced until it is back or levels are opened. " +
                              kSetAside + SetAsideHint(EntriesSinceDumpBegan(claimed.entries), true));
}

void Report(const SysTraceFile& trace, const ClaimedEntries& claimed, Findings& findings) {
    ReportFilter(trace, claimed, findings);
    ReportProcesses(trace, findings);
    if (trace.neverStored > trace.unfinishedEntries) {
        findings.Damage(
            "never-stored",
            Counted(trace.neverStored - trace.unfinishedEntries, "claimed entry") + " never stored.");
    }
    if (trace.orphans > 0) {
        findings.Damage("orphan-continuation", Counted(trace.orphans, "continuation") + " without a record.");
    }
    if (trace.torn > trace.unfinished) {
        findings.Damage("torn-record", Counted(trace.torn - trace.unfinished, "torn record") +
                                           ": a writer did not finish, or entries are lost.");
    }
    if (trace.unfinished + trace.unfinishedEntries > 0) {
        findings.Remark("unfinished-record",
                        Counted(trace.unfinished, "record") + " and " +
                            Counted(trace.unfinishedEntries, "empty entry") +
                            " at the end: their writers were not done when the dump was taken.");
    }
    if (trace.stale > 0) {
        findings.Remark("stale-entry",
                        Counted(trace.stale, "continuation") +
                            " of no record: left from an older round in slots that were claimed and never "
                            "filled, or their record was overwritten.");
    }
    if (trace.entangled > 0) {
        findings.Remark(
            "entangled-record",
            Counted(trace.entangled, "record") +
                " of the same event written at the same moment, whose values cannot be told apart.");
    }
    for (const std::uint32_t id : trace.misnamed) {
        findings.Remark("misnamed-event",
                        "The dictionary gives event " + Hex(id & SYSTRACE_EVENT_MASK) + " of component " +
                            std::to_string(id >> SYSTRACE_COMPONENT_SHIFT & SYSTRACE_COMPONENT_MASK) +
                            " a different number of arguments than its records have.");
    }
    if (trace.cutOff > 0) {
        findings.Remark("wrapped-start",
                        Counted(trace.cutOff, "entry") + ": remains of older records that the wrap has cut.");
    }
    if (trace.clockBreaks > 0) {
        findings.Remark("clock-break", "The stamps do not fit one run of the clock in " +
                                           Counted(trace.clockBreaks, "place") +
                                           ": the device restarted there, or stamps are damaged.");
    }
}

} // namespace

bool LooksLikeSysTrace(std::string_view front) {
    return front.starts_with(std::string_view(kSysTraceMagic)) || IsDumpFront(front);
}

std::optional<SysTraceFile> ReadSysTrace(const InputFile& file, const Names& names, Findings& findings) {
    SysTraceFile trace;
    trace.bytes = file.Size();
    std::array<char, sizeof(SysTraceDumpHeader)> front{};
    const std::size_t got = file.ReadAt(0, front);
    trace.isDump = IsDumpFront({front.data(), got});
    const std::uint64_t offset = trace.isDump ? sizeof(SysTraceDumpHeader) : 0;
    if (!trace.isDump && !std::string_view(front.data(), got).starts_with(std::string_view(kSysTraceMagic))) {
        findings.Damage("not-systrace", "Neither a SysTrace dump nor a SysTrace segment.");
        return std::nullopt;
    }
    SysTraceHeader& header = trace.header;
    if (!ReadStruct(file, offset, header)) {
        findings.Damage("header-cut", "The file ends inside the block's header.");
        return std::nullopt;
    }
    if (std::string_view(header.magic, sizeof(header.magic)) != std::string_view(kSysTraceMagic)) {
        findings.Damage("no-block", "The dump holds no SysTrace block.");
        return std::nullopt;
    }
    if (header.version != SYSTRACE_VERSION || header.headerSize != SYSTRACE_HEADER_SIZE) {
        findings.Damage("unknown-version", "Version " + std::to_string(header.version) +
                                               " with a header of " + std::to_string(header.headerSize) +
                                               " bytes is unknown to this program, which reads version " +
                                               std::to_string(SYSTRACE_VERSION) + ".");
        return std::nullopt;
    }
    ClaimedEntries claimed;
    claimed.slots = trace.entryCount = EntryCount(header, findings);
    std::uint32_t count = 0;
    ClaimedRange(header, claimed, count, findings);
    ReadEntries(file, offset + sizeof(header), count, claimed, findings);
    trace.entriesRead = claimed.entries.size();
    AssembleSysTrace(trace, claimed, names);
    Report(trace, claimed, findings);
    return trace;
}

} // namespace NimaPost
