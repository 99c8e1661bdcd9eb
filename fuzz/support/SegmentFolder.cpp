#include "fuzz/support/SegmentFolder.h"

#include "catalogue/Files.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace NimaPost {

SegmentFolder::SegmentFolder() {
    char name[] = "/tmp/nimafuzzXXXXXX";
    if (mkdtemp(name) == nullptr) {
        std::abort();
    }
    path_ = name;
    const std::filesystem::path folder(path_);
    std::filesystem::create_symlink(trace_.Path(), folder / Nima::Catalogue::kSysTraceSegment.narrow);
    std::filesystem::create_symlink(rings_.Path(), folder / Nima::Catalogue::kRingSegment.narrow);
}

SegmentFolder::~SegmentFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void SegmentFolder::Fill(std::string_view content) const {
    trace_.Fill(content);
    rings_.Fill(content);
}

} // namespace NimaPost
