#include "fuzz/support/SegmentFolder.h"
#include "tools/rings/LiveRings.h"
#include "tools/systrace/LiveTrace.h"
#include "tools/systrace/RecordText.h"

#include <string>
#include <vector>

using namespace NimaPost;

/// The two halves of the input are what two looks find.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const SegmentFolder folder;
    LiveTrace trace(folder.Path());
    LiveRings rings(folder.Path());
    std::vector<Finding> notices;
    std::string text;
    for (const std::string_view part :
         {TextOf(data, size / 2), TextOf(data + size / 2, size - size / 2), TextOf(data, size)}) {
        folder.Fill(part);
        const TraceLook& look = trace.Look(SomeNames(), notices);
        for (const SysTraceRecord& record : look.newest.records) {
            AppendRecord(text, look.newest, record, SomeNames());
        }
        rings.Look(notices);
        text.clear();
    }
    return 0;
}
