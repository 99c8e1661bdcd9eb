#include "ctl/Activity.h"
#include "ctl/FilterText.h"
#include "ctl/RingsText.h"
#include "ctl/block/Journal.h"
#include "ctl/block/Snapshot.h"
#include "fuzz/support/MemoryFile.h"
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

/// A folder whose segments are files in memory; that of the trace is as long as it should be.
class Folder {
  public:
    Folder() {
        char name[] = "/tmp/nimafuzzXXXXXX";
        if (mkdtemp(name) == nullptr) {
            std::abort();
        }
        path_ = name;
        std::filesystem::create_symlink(trace_.Path(), path_ + "/SysTrace Buffer");
        std::filesystem::create_symlink(rings_.Path(), path_ + "/System Ring Buffers");
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::string& Path() const { return path_; }
    void Fill(std::string_view content) const {
        trace_.Fill(content);
        rings_.Fill(content);
        if (content.size() < NimaCtl::kBlockBytes &&
            truncate(trace_.Path().c_str(), static_cast<off_t>(NimaCtl::kBlockBytes)) != 0) {
            std::abort();
        }
    }

  private:
    MemoryFile trace_;
    MemoryFile rings_;
    std::string path_;
};

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
    static const Folder folder;
    static std::FILE* const nowhere = std::fopen("/dev/null", "w");
    folder.Fill(TextOf(data, size));
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
