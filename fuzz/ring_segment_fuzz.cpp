#include "fuzz/support/MemoryFile.h"
#include "tools/base/Text.h"
#include "tools/rings/Merge.h"
#include "tools/rings/Segment.h"
#include "tools/words/Words.h"

using namespace NimaPost;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const InputFile file = FileOf(TextOf(data, size));
    LooksLikeRingSegment(TextOf(data, size), size);
    Findings findings;
    const auto set = ReadRingSegment(file, findings);
    if (!set) {
        return 0;
    }
    std::string text;
    for (const MergedRecord& each : MergeRings(*set)) {
        AppendSeconds(text, each.time);
        AppendRingEvent(text, SomeNames(), each.ring->name, each.record->data);
        text.clear();
    }
    return 0;
}
