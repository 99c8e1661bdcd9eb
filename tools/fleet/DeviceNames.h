#pragma once

#include "tools/base/Pattern.h"

#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace NimaPost {

/// Which device a folder is of. Several threads may ask.
class DeviceNames {
  public:
    explicit DeviceNames(std::optional<Pattern> pattern) : pattern_(std::move(pattern)) {}

    /// `path` is of a folder or an archive, `member` the folder in the archive, if it is in one: what the
    /// expression takes out of both, otherwise the folder's name, or the archive's without its ending.
    std::string Of(const std::string& path, const std::string& member) const;

  private:
    std::optional<Pattern> pattern_;
    mutable std::mutex mutex_; ///< an expression is one thread's at a time
};

} // namespace NimaPost
