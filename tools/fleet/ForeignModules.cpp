#include "tools/fleet/ForeignModules.h"

#include "tools/fleet/CLibrary.h"

#include <algorithm>
#include <array>
#include <span>

namespace NimaPost {

namespace {

/// The functions of a module: whole names, and what names begin with.
struct Module {
    std::span<const std::string_view> names;
    std::span<const std::string_view> begins;
};

constexpr std::array<std::string_view, 3> kHandlers{"signalHandler", "terminateHandler", "HandleFatalCrash"};

constexpr std::array<std::string_view, 6> kDiagnostics{"InstallCrashHandler",       "DeviceFatalError",
                                                       "DeviceFatalErrorExtra",     "DeviceFatalException",
                                                       "DeviceFatalExceptionExtra", "GatherTriageSnapshot"};

/// Not exported by the C library, but with names of their own.
constexpr std::array<std::string_view, 3> kC{"_start", "start_thread", "clone3"};
/// Two underscores are kept for the compiler and its libraries.
constexpr std::array<std::string_view, 5> kCBegins{"__", "_IO_", "_dl_", "_nss_", "pthread_"};

constexpr std::array<std::string_view, 3> kCppBegins{"std::", "operator new", "operator delete"};
/// No function is called so, only the result of a template, in which its line was cut.
constexpr std::string_view kResult = "std::enable_if";

constexpr std::array<std::string_view, 3> kUnwinderBegins{"_Unwind_", "_UL", "unw_"};

constexpr std::array<Module, 5> kModules{Module{kHandlers, {}}, Module{kDiagnostics, {}},
                                         Module{kC, kCBegins}, Module{{}, kCppBegins},
                                         Module{{}, kUnwinderBegins}};

/// A function in C has no parameters in its name, unlike a product's own in C++ that is called the same.
bool IsInC(const FunctionName& function) {
    return function.text == function.plain;
}

} // namespace

bool IsForeign(const FunctionName& function) {
    const std::string_view name = function.plain;
    if (name.starts_with(kResult)) {
        return false;
    }
    return (IsInC(function) && IsExportedByCLibrary(name)) ||
           std::any_of(kModules.begin(), kModules.end(), [&](const Module& module) {
               return std::find(module.names.begin(), module.names.end(), name) != module.names.end() ||
                      std::any_of(module.begins.begin(), module.begins.end(),
                                  [&](std::string_view begin) { return name.starts_with(begin); });
           });
}

bool EntersHandler(std::string_view function) {
    return std::find(kHandlers.begin(), kHandlers.end(), function) != kHandlers.end();
}

} // namespace NimaPost
