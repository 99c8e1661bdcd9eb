#include "fuzz/support/MemoryFile.h"

#include <cstdlib>

#include <sys/mman.h>
#include <unistd.h>

namespace NimaPost {

MemoryFile::MemoryFile()
    : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(descriptor_)) {
    if (descriptor_ < 0) {
        std::abort();
    }
}

MemoryFile::~MemoryFile() {
    close(descriptor_);
}

void MemoryFile::Fill(std::string_view content) const {
    if (ftruncate(descriptor_, 0) != 0 ||
        pwrite(descriptor_, content.data(), content.size(), 0) != static_cast<ssize_t>(content.size())) {
        std::abort();
    }
}

InputFile FileOf(std::string_view content) {
    static const MemoryFile memory;
    memory.Fill(content);
    std::string problem;
    auto file = InputFile::Open(memory.Path(), problem);
    if (!file) {
        std::abort();
    }
    return std::move(*file);
}

const Names& SomeNames() {
    static const Names names = [] {
        Names made;
        std::string problem;
        for (const char* line :
             {"component 2 Engine", "event Engine 1 line \"line %u, %d bytes\"", "event Engine 2 page",
              "ring PrintEngine 1 line \"line %u, %c%5.3x%%\"", "level 3 debug"}) {
            if (!made.AddLine(line, problem)) {
                std::abort();
            }
        }
        return made;
    }();
    return names;
}

} // namespace NimaPost
