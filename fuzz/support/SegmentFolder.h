#pragma once

#include "fuzz/support/MemoryFile.h"

#include <string>
#include <string_view>

namespace NimaPost {

/// A folder in which both segments are files in memory.
class SegmentFolder {
  public:
    SegmentFolder();
    SegmentFolder(const SegmentFolder&) = delete;
    SegmentFolder& operator=(const SegmentFolder&) = delete;
    ~SegmentFolder();

    const std::string& Path() const { return path_; }
    const MemoryFile& Trace() const { return trace_; }
    void Fill(std::string_view content) const;

  private:
    MemoryFile trace_;
    MemoryFile rings_;
    std::string path_;
};

} // namespace NimaPost
