#include "fuzz/support/MemoryFile.h"
#include "tools/manifest/Manifest.h"
#include "tools/story/Collection.h"

using namespace NimaPost;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Findings findings;
    LooksLikeManifest(TextOf(data, size));
    const auto manifest = ReadManifest(TextOf(data, size), findings);
    if (!manifest) {
        if (findings.damage.empty()) {
            std::abort(); // Something must say why.
        }
        return 0;
    }
    std::vector<FolderFile> files(2);
    files[0].name = files[0].plainName = "device.log";
    files[1].name = files[1].plainName = "System Ring Buffers";
    files[1].index = 1;
    Axis axis;
    ApplyManifest(*manifest, files, axis);
    ReportContradictions(axis, files[0]);
    return 0;
}
