#pragma once

#include "tools/base/InputFile.h"
#include "tools/names/Names.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace NimaPost {

/// A file in memory with a path that can be opened.
class MemoryFile {
  public:
    MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile();

    const std::string& Path() const { return path_; }
    void Fill(std::string_view content) const;

  private:
    int descriptor_ = -1;
    std::string path_;
};

/// A file that holds the content until the next call.
InputFile FileOf(std::string_view content);

inline std::string_view TextOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// Knows some events, as the program does with a dictionary.
const Names& SomeNames();

} // namespace NimaPost

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
