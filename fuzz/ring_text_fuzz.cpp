#include "fuzz/support/MemoryFile.h"
#include "tools/base/Text.h"
#include "tools/rings/Merge.h"
#include "tools/rings/RingText.h"

using namespace NimaPost;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    LooksLikeRingText(TextOf(data, size));
    Findings findings;
    const auto set = ReadRingText(TextOf(data, size), findings);
    if (!set) {
        return 0;
    }
    std::string text;
    for (const MergedRecord& each : MergeRings(*set)) {
        AppendSeconds(text, each.time);
        text.clear();
    }
    if (set->date) {
        AppendWallTime(text, set->date->Earliest());
    }
    return 0;
}
