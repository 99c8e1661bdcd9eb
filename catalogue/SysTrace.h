#pragma once

/// What the fields of the SysTrace block mean; their layout is in Formats.h.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include <Diagnostics/Formats.h>

namespace Nima::Catalogue {

/// Capture states of a block; 0 is the saved state before the first capture.
enum CaptureState : std::uint32_t {
    kNoCapture = 0,
    kTracing = 1,
    kTriggered = 2,
    kTriggerPending = 3,
    kCapturing = 4,
    kCaptureStates
};

inline constexpr std::array<std::string_view, 5> kCaptureStateNames{"none", "tracing", "triggered",
                                                                    "trigger pending", "capturing"};
static_assert(kCaptureStateNames.size() == kCaptureStates, "a name for each state");

inline constexpr std::uint32_t kComponents = SYSTRACE_COMPONENT_MASK + 1;
inline constexpr std::uint32_t kTraceLevels = SYSTRACE_LEVEL_MASK + 1;

/// The filter's word for a level and a component, and the component's bit in that word.
constexpr std::size_t FilterWord(std::uint32_t level, std::uint32_t component) {
    return level * std::size_t{SYSTRACE_FILTER_WORDS / kTraceLevels} + component / 32;
}
constexpr std::uint32_t FilterBit(std::uint32_t component) {
    return UINT32_C(0x80000000) >> (component % 32);
}

} // namespace Nima::Catalogue
