#include "Diagnostics/Triage/FaultGenerators.h"

#include "platform/Pause.h"

// These functions do on purpose what a sanitizer would report.
#define NIMA_FAULTS_ON_PURPOSE __attribute__((no_sanitize("address", "undefined"), noinline))

namespace Nima::Common::System::OS::Diagnostics {

namespace {

/// The address last written to, where a debugger can see it.
volatile std::uint32_t g_Value = 0;

/// A null that the compiler does not know to be null.
volatile std::uint32_t* volatile g_Null = nullptr;

} // namespace

NIMA_FAULTS_ON_PURPOSE void ForceAccessViolation() {
    static_cast<void>(*g_Null);
    __builtin_trap();
}

void _TestStdExceptionCallbackLogging() {}

NIMA_FAULTS_ON_PURPOSE void _GenerateAccessViolation(std::uint32_t* address) {
    g_Value = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(address));
    volatile std::uint32_t* const word = address;
    *word = *word + 1;
}

void _GenerateStackOverflow(const void* pointer) {
    while (pointer == nullptr) {
        BriefPause();
    }
}

} // namespace Nima::Common::System::OS::Diagnostics
