/// The hooks that a host may replace by defining them itself. They are weak and in a unit of their own, so
/// that a host's definitions win whether the library is shared or static, and none of the library's calls is
/// bound to these.

#include <Diagnostics/CrashApi.h>

__attribute__((weak)) int IsOkToAutoRecover(long /*code*/, long /*faultAddress*/, uint32_t* /*action*/) {
    return 1;
}

__attribute__((weak)) int GenerateCrashDump(const wchar_t* /*path*/, int /*type*/, int /*extra*/) {
    return 0;
}
