#include "fuzz/support/MemoryFile.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/systrace/RecordText.h"

using namespace NimaPost;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const InputFile file = FileOf(TextOf(data, size));
    Findings findings;
    const auto trace = ReadSysTrace(file, SomeNames(), findings);
    if (!trace) {
        return 0;
    }
    std::string text = FilterInWords(trace->header.liveFilter, SomeNames());
    for (const SysTraceRecord& record : trace->records) {
        AppendRecord(text, *trace, record, SomeNames());
        RecordJson(*trace, record, SomeNames());
        AppendSeconds(text, record.elapsed);
        text.clear();
    }
    return 0;
}
