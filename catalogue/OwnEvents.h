#pragma once

/// What the library itself records in the binary trace and in its ring, with the wording that readers show. A
/// new event needs a name in the enumeration and a row in the table after it.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include <Diagnostics/Formats.h>

namespace Nima::Catalogue {

/// An event's number, its name, and a printf text for its arguments, which may be empty.
struct OwnEventRow {
    std::uint32_t number;
    std::string_view name;
    std::string_view format;
};

/// The library's component in the binary trace; its events have level 0.
inline constexpr std::uint32_t kOwnComponent = 127;
inline constexpr std::string_view kOwnComponentName = "Diagnostics";

enum class OwnTraceEvent : std::uint8_t {
    kFileDumpStarts,
    kFileDumpRefused,
    kFileDumpEnds,
    kCallbackDumpWithoutCallback,
    kCallbackDumpStarts,
    kCallbackDumpRefused,
    kCallbackDumpEnds,
    kFatalErrorHandling,
    kSecondFailure,
    kExitTrapped,
    kRecovery,
    kCount
};

inline constexpr std::array kOwnTraceEvents{
    OwnEventRow{0x7532, "dump_starts", ""},
    OwnEventRow{0x7533, "dump_failed_to_start", ""},
    OwnEventRow{0x7534, "dump_ends", ""},
    OwnEventRow{0x7535, "callback_dump_without_callback", ""},
    OwnEventRow{0x7536, "callback_dump_starts", ""},
    OwnEventRow{0x7537, "callback_dump_failed_to_start", ""},
    OwnEventRow{0x7538, "callback_dump_ends", ""},
    OwnEventRow{0xEACF, "fatal_error_handling", ""},
    OwnEventRow{0xEAD0, "second_failure_not_handled", ""},
    OwnEventRow{0xEAD1, "exit_trapped", ""},
    OwnEventRow{0xEAD5, "recovery", ""},
};
static_assert(kOwnTraceEvents.size() == static_cast<std::size_t>(OwnTraceEvent::kCount),
              "a row for each event");

/// The id word that begins a record of the event.
constexpr std::uint32_t IdOf(OwnTraceEvent event) {
    return kOwnComponent << SYSTRACE_COMPONENT_SHIFT |
           kOwnTraceEvents[static_cast<std::size_t>(event)].number;
}

/// What an engineer's mark leaves: not of the library, but of nima-ctl. The five arguments are text, padded
/// with zeros.
inline constexpr OwnEventRow kMarkEvent{0x7540, "mark", "%T%T%T%T%T"};
inline constexpr std::size_t kMarkWords = 5;

/// The library's ring, "Platform".
inline constexpr std::size_t kOwnRing = 5;

enum class OwnRingEvent : std::uint8_t {
    kModuleListingStarts,  ///< 2, 0, 0, 0
    kModuleSnapshotFailed, ///< errno, 0, 0, 0
    kModuleListingEnds,    ///< 0, 0, 0, 0
    kFirstModuleFailed,    ///< errno, 0, 0, 0
    kFaultInDiagnostics,   ///< exception code, 0, 0, 0
    kEventCallback,        ///< event type, second argument, 0 before or 1 after, exception code
    kCount
};

inline constexpr std::array kOwnRingEvents{
    OwnEventRow{0, "module_listing_starts", ""},
    OwnEventRow{1, "no_module_snapshot", "errno %d"},
    OwnEventRow{3, "module_listing_ends", ""},
    OwnEventRow{4, "no_first_module", "errno %d"},
    OwnEventRow{8, "fault_in_diagnostics", "code %#x"},
    OwnEventRow{9, "event_callback", "type %u, argument %#x, after %u, fault %#x"},
};
static_assert(kOwnRingEvents.size() == static_cast<std::size_t>(OwnRingEvent::kCount),
              "a row for each event");

constexpr std::uint32_t CodeOf(OwnRingEvent event) {
    return kOwnRingEvents[static_cast<std::size_t>(event)].number;
}

} // namespace Nima::Catalogue
