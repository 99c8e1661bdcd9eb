#include "fuzz/support/MemoryFile.h"
#include "tools/crash/CrashLog.h"
#include "tools/rings/Merge.h"

using namespace NimaPost;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Findings findings;
    const auto log = ReadCrashLog(TextOf(data, size), findings);
    if (log) {
        log->Title();
        MergeRings(log->rings);
    }
    return 0;
}
