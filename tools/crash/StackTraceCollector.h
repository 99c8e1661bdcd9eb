#pragma once

#include "tools/base/Descriptor.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace NimaPost {

/// Copies stack-trace files into a folder before their owner clears them away.
class StackTraceCollector {
  public:
    /// Opens the folder, which is made where it is missing. Empty when that cannot be; `problem` says why.
    static std::optional<StackTraceCollector> Open(const std::string& folder, std::string& problem);

    struct Copy {
        std::string path; ///< empty where nothing was copied
        std::uint64_t bytes = 0;
        std::string problem; ///< why there is no copy, or why it is not all of the file
    };
    /// Copies the file that a notification names under its own name, or that name and a number where it is
    /// taken. Whoever notifies is not to be trusted: anything but a regular file with the name of a stack
    /// trace is refused, and a long file is cut.
    Copy Take(const std::string& path) const;

  private:
    StackTraceCollector(std::string folder, Descriptor descriptor)
        : folder_(std::move(folder)), descriptor_(std::move(descriptor)) {}

    int Create(const std::string& name, std::string& chosen) const;

    std::string folder_;
    Descriptor descriptor_;
};

} // namespace NimaPost
