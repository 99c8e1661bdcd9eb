#pragma once

#include "tools/names/Names.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include <Diagnostics/Formats.h>

namespace NimaPost {

/// How complete a record is.
enum class RecordState : unsigned char {
    kWhole,
    /// Its writer never finished it, or its entries are lost.
    kTorn,
    /// Records of the same event were written at the same moment, and their values cannot be told apart. All
    /// the values that followed are with the last record of the group.
    kEntangled
};

/// "whole", "torn", "entangled".
std::string_view StateName(RecordState state);

/// "tracing", "capturing" and so on for the capture state of a SysTrace block.
std::string_view CaptureStateName(std::uint32_t state);

/// Whether a block's filter lets anything through.
enum class Tracing : unsigned char {
    kOn,
    kSuspended, ///< nothing gets through, and a filter is set aside
    kOff
};
/// `inDump`: the block is from a dump, which itself has set the filter aside.
Tracing TracingOf(const SysTraceHeader& header, bool inDump);
/// "on", "suspended", "off".
std::string_view TracingName(Tracing tracing);
/// The capture state, "tracing" for example, and what becomes of it where nothing gets through the filter.
std::string CaptureInWords(const SysTraceHeader& header, bool inDump);

/// "level 0: every component; level 1: every component but Panel; level 2: Engine, components 7 to 12; ...".
std::string FilterInWords(std::span<const std::uint32_t, SYSTRACE_FILTER_WORDS> filter, const Names& names);
/// The same without the levels of which nothing is open; "none" if that is all of them.
std::string OpenLevelsInWords(std::span<const std::uint32_t, SYSTRACE_FILTER_WORDS> filter,
                              const Names& names);

/// An event of the binary trace as every view shows it: "page_begins: page 1, 79 lines". Without a
/// dictionary, or if the record is incomplete, numbers take the place of words: "event 0x3 0xabc",
/// "page_begins 0x1  [torn]".
void AppendTraceEvent(std::string& text, const Names& names, std::uint32_t component, std::uint32_t event,
                      std::span<const std::uint32_t> values, RecordState state);

/// The same for a record of a ring, whose first word is its code: "event_callback: type 1, ...", or
/// "code 0x51 0x1 0x2 0x3 0x4".
void AppendRingEvent(std::string& text, const Names& names, std::string_view ring,
                     const RingBufferData& record);

/// The words after the code in a ring's record, as many as its event takes.
std::span<const std::uint32_t> RingArguments(const EventName* event, const RingBufferData& record);

} // namespace NimaPost
