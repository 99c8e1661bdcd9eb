#include "tools/input/Evidence.h"

#include <utility>

namespace NimaPost {

std::optional<InputFile> EvidenceFile::Open(std::string& reason) {
    if (!content && problem.empty()) {
        content = InputFile::Open(path, problem);
    }
    reason = problem;
    return std::exchange(content, std::nullopt);
}

std::string EvidenceFile::Front(std::uint64_t& size) {
    const bool wasOpen = content.has_value();
    std::string reason;
    auto file = Open(reason);
    size = file ? file->Size() : 0;
    std::string front = file ? file->ReadAll(kFrontBytes) : std::string();
    if (wasOpen) {
        content = std::move(file);
    }
    return front;
}

} // namespace NimaPost
