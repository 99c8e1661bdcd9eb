#include "fuzz/support/MemoryFile.h"
#include "tools/crash/StackTrace.h"

using namespace NimaPost;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    LooksLikeStackTrace(TextOf(data, size));
    Findings findings;
    const StackTrace trace = ReadStackTrace(TextOf(data, size), findings);
    trace.Title();
    trace.ThroughAbort();
    return 0;
}
