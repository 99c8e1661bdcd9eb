#include "fuzz/support/MemoryFile.h"
#include "tools/rings/LiveRings.h"
#include "tools/systrace/LiveTrace.h"
#include "tools/systrace/RecordText.h"

#include <cstdlib>
#include <filesystem>

#include <unistd.h>

using namespace NimaPost;

namespace {

/// A folder whose segments are files in memory.
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
    }

  private:
    MemoryFile trace_;
    MemoryFile rings_;
    std::string path_;
};

} // namespace

/// The two halves of the input are what two looks find.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Folder folder;
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
