#include "fuzz/support/MemoryFile.h"
#include "tools/event/EventRecord.h"

#include <cstdlib>

using namespace NimaPost;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Findings findings;
    const auto record = ReadEventRecord(TextOf(data, size), findings);
    if (record.has_value() != LooksLikeEventRecord(TextOf(data, size))) {
        std::abort();
    }
    if (record) {
        std::string text;
        AppendEventRecord(text, *record);
    }
    return 0;
}
