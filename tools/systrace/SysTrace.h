#pragma once

#include "tools/base/Findings.h"
#include "tools/base/InputFile.h"
#include "tools/words/Words.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include <Diagnostics/Formats.h>

namespace NimaPost {

struct SysTraceRecord {
    std::int64_t elapsed = 0; ///< nanoseconds since the first record, at the least
    std::uint32_t slot = 0;
    std::uint32_t id = 0; ///< without the continuation bit
    std::uint32_t stamp = 0;
    std::uint32_t firstValue = 0; ///< index in the trace's values
    std::uint32_t values = 0;     ///< arguments, without the thread
    std::uint32_t thread = 0;
    bool hasThread = false;
    RecordState state = RecordState::kWhole;
    std::uint16_t stretch = 0; ///< of the trace's stretches

    std::uint32_t Component() const { return id >> SYSTRACE_COMPONENT_SHIFT & SYSTRACE_COMPONENT_MASK; }
    std::uint32_t Level() const { return id >> SYSTRACE_LEVEL_SHIFT & SYSTRACE_LEVEL_MASK; }
    std::uint32_t Event() const { return id & SYSTRACE_EVENT_MASK; }
};

/// A SysTrace block read from a dump or from the raw segment, doc/systrace.md.
struct SysTraceFile {
    bool isDump = false;
    SysTraceHeader header{};
    std::uint64_t bytes = 0;             ///< of the file
    std::uint32_t entryCount = 0;        ///< as determined by the reader
    std::uint64_t entriesRead = 0;       ///< claimed entries that the file holds
    std::vector<SysTraceRecord> records; ///< in the order in which they were claimed
    std::vector<std::uint32_t> values;
    /// The first record of each process, where one wrote after the other; those of processes that share the
    /// block at the same time are one stretch.
    std::vector<std::uint32_t> stretches{0};

    std::uint64_t neverStored = 0; ///< claimed entries of two zero words
    std::uint64_t cutOff = 0;      ///< continuations of records that a wrap has cut
    std::uint64_t stale = 0;       ///< continuations of an older round, in slots that were not filled again
    std::uint64_t orphans = 0;     ///< other continuations without a record
    std::uint64_t torn = 0;
    /// Of the torn records and the entries never stored, those that were being written when the dump was
    /// taken.
    std::uint64_t unfinished = 0;
    std::uint64_t unfinishedEntries = 0;
    std::uint64_t entangled = 0;
    std::uint64_t clockBreaks = 0;
    std::vector<std::uint32_t> misnamed; ///< events to which the dictionary gives another number of arguments

    std::span<const std::uint32_t> ValuesOf(const SysTraceRecord& record) const {
        return std::span(values).subspan(record.firstValue, record.values);
    }
};

/// Whether the bytes at the front of a file (512 are enough) look like a dump or a segment.
bool LooksLikeSysTrace(std::string_view front);

/// Empty if the file is neither a dump nor a segment, or has a version that this program does not know; the
/// findings then say so. `names` says how many arguments an event has.
std::optional<SysTraceFile> ReadSysTrace(const InputFile& file, const Names& names, Findings& findings);

} // namespace NimaPost
