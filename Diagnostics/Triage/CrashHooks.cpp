/// The hooks that a host may replace by defining them itself. They stand alone here and are weak, so that a
/// host's own win whether the library is shared or static, and no call of the library's is bound to these.

#include <Diagnostics/CrashApi.h>

__attribute__((weak)) int IsOkToAutoRecover(long /*code*/, long /*faultAddress*/, uint32_t* /*action*/) {
    return 1;
}

__attribute__((weak)) int GenerateCrashDump(const wchar_t* /*path*/, int /*type*/, int /*extra*/) {
    return 0;
}
