#include "Diagnostics/TraceLevel.h"

#include <cstddef>
#include <cstdio>

#include <Diagnostics/TraceApi.h>

using namespace Nima::Common::System::OS::Diagnostics;

// The message is a format without arguments, so "%%" prints one percent sign. It is expanded by hand: any
// other conversion in it would read arguments that nobody passed.
void WriteCriticalDbgMsg(const wchar_t* message) {
    if (message == nullptr || !IsLevelWritten(TRACE_THRESHOLD_ERROR)) {
        return;
    }
    constexpr std::size_t kLimit = 1023;
    wchar_t text[kLimit + 1] = {};
    std::size_t length = 0;
    for (const wchar_t* c = message; *c != L'\0' && length < kLimit; ++c) {
        if (c[0] == L'%' && c[1] == L'%') {
            ++c;
        }
        text[length++] = *c;
    }
    std::printf("%ls", text);
}
