#pragma once

#include "tools/base/FileIdentity.h"
#include "tools/base/Output.h"

#include <cstdio>
#include <memory>
#include <span>
#include <string>

namespace NimaPost {

/// A file that a command writes. It appears under its name only when all of it could be written, and an
/// earlier file of that name stays until then.
class OutputFile {
  public:
    OutputFile() = default;
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile();

    /// False, with the reason and before anything has been opened, where the path leads to one of the inputs;
    /// false as well where the file cannot be made.
    bool Create(const std::string& path, std::span<const FileIdentity> inputs, std::string& problem);
    Output& Out() { return *out_; }
    /// False, with the reason, where anything could not be written.
    bool Finish(std::string& problem);

  private:
    std::string path_;
    std::string temporary_;
    std::FILE* stream_ = nullptr;
    std::unique_ptr<Output> out_;
};

} // namespace NimaPost
