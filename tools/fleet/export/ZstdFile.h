#pragma once

#include "tools/base/Output.h"

#include <cstdio>
#include <memory>
#include <string>

struct archive;

namespace NimaPost {

/// A file of text that is compressed while it is written, as one frame of zstd. Adding to a file adds a
/// frame. Whatever fails throws std::system_error with the file's path.
class ZstdFile {
  public:
    explicit ZstdFile(std::string path);
    ZstdFile(const ZstdFile&) = delete;
    ZstdFile& operator=(const ZstdFile&) = delete;
    ~ZstdFile();

    Output& Out() { return *out_; }
    /// To be called at the end; what is not finished is no whole frame.
    void Finish();

  private:
    [[noreturn]] void Fail(int error) const;
    void Open();

    std::string path_;
    std::FILE* file_ = nullptr;
    std::FILE* stream_ = nullptr; ///< whose text is compressed
    archive* packer_ = nullptr;
    std::unique_ptr<Output> out_;
};

} // namespace NimaPost
