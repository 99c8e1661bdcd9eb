#include "tools/story/Folder.h"

#include "tools/base/OwnOutput.h"
#include "tools/story/Sources.h"

#include <algorithm>

namespace NimaPost {

void ReadFolderFile(EvidenceFile& evidence, FolderFile& file, SourceSet& sources, KnownModules& known) {
    file.name = evidence.name;
    file.plainName = evidence.plainName;
    file.modified = evidence.modified;
    file.identity = evidence.identity.value_or(FileIdentity());
    std::string problem;
    auto input = evidence.Open(problem);
    if (!input) {
        file.unusable = true;
        file.findings.Damage("cannot-open", problem);
        return;
    }
    file.bytes = input->Size();
    file.identity = evidence.identity ? *evidence.identity : input->Identity();
    const std::string front = input->ReadAll(kFrontBytes);
    known.Take(*input, front);
    file.ownOutput = IsOwnOutput(front);
    file.row = Recognise(front, file.bytes);
    if (file.row != nullptr) {
        file.row->source(sources).Read(file, *input);
    }
    if (!input->ReadProblem().empty()) {
        file.unusable = file.unusable || file.row == nullptr;
        input->ReportReadProblem(file.findings);
    }
}

bool HoldsEvidence(Device& device) {
    return std::any_of(device.files.begin(), device.files.end(), [](EvidenceFile& file) {
        std::uint64_t size = 0;
        const std::string front = file.Front(size);
        const SourceRow* const row = Recognise(front, size);
        return row != nullptr && row->isEvidence;
    });
}

} // namespace NimaPost
