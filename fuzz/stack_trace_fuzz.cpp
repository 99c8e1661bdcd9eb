#include "fuzz/support/MemoryFile.h"
#include "tools/crash/StackTrace.h"

using namespace NimaPost;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    LooksLikeStackTrace(TextOf(data, size));
    Findings findings;
    ReadStackTrace(TextOf(data, size), findings);
    return 0;
}
