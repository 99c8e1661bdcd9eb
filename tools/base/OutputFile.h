#pragma once

#include "tools/base/FileIdentity.h"
#include "tools/base/Output.h"
#include "tools/base/OutputFilter.h"

#include <cstdio>
#include <memory>
#include <span>
#include <string>

namespace NimaPost {

/// Whether a path leads to where standard output goes.
bool IsStandardOutput(const std::string& path);

/// A file that a command writes. It appears under its name only once all of it has been written; an earlier
/// file of that name stays until then.
class OutputFile {
  public:
    OutputFile() = default;
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile();

    /// Returns false, with the reason and before anything has been opened, if the path leads to one of the
    /// inputs; also returns false if the file cannot be created.
    /// A filter is made once the file is open; it returns null, with `errno` set, if it cannot be.
    using MakeFilter = std::unique_ptr<OutputFilter> (*)(std::FILE* file);
    bool Create(const std::string& path, std::span<const FileIdentity> inputs, std::string& problem,
                MakeFilter makeFilter = nullptr);
    Output& Out() { return *out_; }
    /// Returns false, with the reason, if anything could not be written.
    bool Finish(std::string& problem);

  private:
    std::string path_;
    std::string temporary_;
    std::FILE* stream_ = nullptr;
    std::unique_ptr<OutputFilter> filter_; ///< null where the text goes to the file as it is
    std::unique_ptr<Output> out_;
};

} // namespace NimaPost
