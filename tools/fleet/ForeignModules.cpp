#include "tools/fleet/ForeignModules.h"

#include "tools/symbols/FrameLine.h"

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

constexpr std::array<std::string_view, 3> kHandler{"signalHandler", "terminateHandler", "HandleFatalCrash"};

constexpr std::array<std::string_view, 6> kDiagnostics{"InstallCrashHandler",       "DeviceFatalError",
                                                       "DeviceFatalErrorExtra",     "DeviceFatalException",
                                                       "DeviceFatalExceptionExtra", "GatherTriageSnapshot"};

constexpr std::array<std::string_view, 46> kC{
    "abort",  "raise",  "gsignal", "exit",   "_exit",        "kill",    "tgkill",    "syscall",
    "malloc", "calloc", "realloc", "free",   "cfree",        "memcpy",  "memmove",   "memset",
    "memcmp", "memchr", "strlen",  "strcpy", "strncpy",      "strcmp",  "strncmp",   "strcat",
    "strchr", "strstr", "strdup",  "printf", "fprintf",      "sprintf", "snprintf",  "vsnprintf",
    "puts",   "fwrite", "fread",   "fclose", "qsort",        "bsearch", "nanosleep", "usleep",
    "sleep",  "poll",   "select",  "_start", "start_thread", "clone"};
constexpr std::array<std::string_view, 18> kCBegins{
    "__libc_",   "__GI_",      "_IO_",      "__pthread_", "pthread_",   "__assert_",
    "__memcpy_", "__memmove_", "__memset_", "__str",      "__clone",    "clone3",
    "__restore", "__default_", "__kernel_", "__vdso_",    "__chk_fail", "__stack_chk_"};

constexpr std::array<std::string_view, 8> kCppBegins{
    "std::",        "__gnu_cxx::",     "__cxxabiv1::", "__cxa_",
    "operator new", "operator delete", "__gxx_",       "__verbose_terminate"};

constexpr std::array<std::string_view, 7> kLoaderBegins{"_dl_", "__tls_",   "_Unwind_",     "_UL",
                                                        "unw_", "__aeabi_", "__gnu_Unwind_"};

constexpr std::array<Module, 5> kModules{Module{kHandler, {}}, Module{kDiagnostics, {}}, Module{kC, kCBegins},
                                         Module{{}, kCppBegins}, Module{{}, kLoaderBegins}};

} // namespace

bool IsForeign(std::string_view function) {
    return ReturnsFromSignal(function) ||
           std::any_of(kModules.begin(), kModules.end(), [&](const Module& module) {
               return std::find(module.names.begin(), module.names.end(), function) != module.names.end() ||
                      std::any_of(module.begins.begin(), module.begins.end(),
                                  [&](std::string_view begin) { return function.starts_with(begin); });
           });
}

bool EntersHandler(std::string_view function) {
    return std::find(kHandler.begin(), kHandler.end(), function) != kHandler.end();
}

} // namespace NimaPost
