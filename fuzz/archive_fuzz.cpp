#include "fuzz/support/MemoryFile.h"
#include "tools/input/EvidenceReader.h"

#include <algorithm>

using namespace NimaPost;

/// An archive or a compressed file, with limits that a small one reaches.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile file;
    file.Fill(TextOf(data, size));
    InputLimits limits;
    limits.unpackedBytes = 1 << 20;
    limits.members = 64;
    Evidence evidence = ReadEvidence({file.Path()}, limits);
    std::uint64_t bytes = 0;
    for (Device& device : evidence.devices) {
        for (EvidenceFile& each : device.files) {
            const bool leadsOut = !each.named && (each.name.empty() || each.name == ".." ||
                                                  each.name.find('/') != std::string::npos);
            std::string problem;
            const auto content = each.Open(problem);
            if (leadsOut || !content || content->ReadAll(content->Size()).size() != content->Size()) {
                std::abort();
            }
            bytes += each.identity && content->Identity() == *each.identity ? 0 : content->Size();
        }
    }
    if (bytes > limits.unpackedBytes) {
        std::abort();
    }
    return 0;
}
