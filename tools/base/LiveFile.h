#pragma once

#include "tools/base/InputFile.h"

#include <optional>
#include <string>
#include <vector>

namespace NimaPost {

/// A file that another process has mapped, looked at again and again: it may come, go, be replaced, cut or
/// grow between two looks. It is only ever read.
class LiveFile {
  public:
    /// `name` is what notices call it.
    LiveFile(std::string path, std::string name) : path_(std::move(path)), name_(std::move(name)) {}

    /// The file as it is now, or null where there is none; `Problem` then says why. What has happened to it
    /// since the last look is added to the notices.
    const InputFile* Look(std::vector<std::string>& notices);

    const std::string& Problem() const { return problem_; }
    const std::string& Name() const { return name_; }
    /// How often another file than before was found: what is remembered of the one before is void.
    unsigned Generation() const { return generation_; }

  private:
    std::string path_;
    std::string name_;
    std::string problem_;
    std::optional<InputFile> file_;
    unsigned generation_ = 0;
};

} // namespace NimaPost
