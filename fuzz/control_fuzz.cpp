#include "ctl/Activity.h"
#include "ctl/FilterText.h"
#include "ctl/RingsText.h"
#include "ctl/block/Journal.h"
#include "ctl/block/Snapshot.h"
#include "fuzz/support/SegmentFolder.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <unistd.h>

using namespace NimaPost;

namespace {

/// More entries take longer than they are worth.
constexpr std::uint32_t kMostCopied = 1 << 14;

/// That of the trace is as long as it should be.
void Fill(const SegmentFolder& folder, std::string_view content) {
    folder.Fill(content);
    if (content.size() < NimaCtl::kBlockBytes &&
        truncate(folder.Trace().Path().c_str(), static_cast<off_t>(NimaCtl::kBlockBytes)) != 0) {
        std::abort();
    }
}

void ReadBlock(const std::string& directory) {
    std::string problem;
    const auto block = NimaCtl::TraceBlock::Open(directory, NimaCtl::Access::kRead, problem);
    if (!block) {
        return;
    }
    const NimaCtl::Filters filters = block->ReadFilters();
    NimaCtl::FilterText(filters.Effective(), SomeNames());
    if (NimaCtl::UsedEntries(block->CopyHeader()) <= kMostCopied) {
        NimaCtl::Watch(*block, {});
        NimaCtl::TakeSnapshot(*block, problem);
    }
}

} // namespace

/// The same bytes as each of the things that other processes leave: the block, the rings, a note.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const SegmentFolder folder;
    static std::FILE* const nowhere = std::fopen("/dev/null", "w");
    Fill(folder, TextOf(data, size));
    ReadBlock(folder.Path());
    std::string problem;
    if (const auto rings = NimaCtl::ReadRings(folder.Path(), problem)) {
        Output out(nowhere);
        NimaCtl::WriteRings(out, *rings);
    }
    const auto note = NimaCtl::ParseNote(TextOf(data, size));
    if (note && !EqualNoCase(NimaCtl::NoteText(*note), TextOf(data, size))) {
        std::abort();
    }
    return 0;
}
