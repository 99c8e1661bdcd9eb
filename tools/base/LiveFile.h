#pragma once

#include "tools/base/Findings.h"
#include "tools/base/InputFile.h"

#include <optional>
#include <string>
#include <vector>

namespace NimaPost {

/// A file that another process has mapped, looked at repeatedly: between two looks it may appear, disappear,
/// be replaced, be cut, or grow. It is only ever read.
class LiveFile {
  public:
    /// `name` is the file's name in notices.
    LiveFile(std::string path, std::string name) : path_(std::move(path)), name_(std::move(name)) {}

    /// The file as it is now, or null if there is none; `Problem` then says why. What has happened to it
    /// since the last look is added to the notices.
    const InputFile* Look(std::vector<Finding>& notices);

    const std::string& Problem() const { return problem_; }
    /// Why the file could not be used after it was opened: that reading failed, or else what `otherwise`
    /// says.
    std::string ProblemOr(std::string otherwise) const;
    const std::string& Name() const { return name_; }
    /// How often a different file was found: what is remembered of the previous one is then void.
    unsigned Generation() const { return generation_; }

  private:
    std::string path_;
    std::string name_;
    std::string problem_;
    std::optional<InputFile> file_;
    unsigned generation_ = 0;
};

} // namespace NimaPost
