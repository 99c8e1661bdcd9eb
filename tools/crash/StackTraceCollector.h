#pragma once

#include "tools/base/Descriptor.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace NimaPost {

/// Copies stack-trace files into a folder before their owner removes them.
class StackTraceCollector {
  public:
    /// Opens the folder, creating it if it is missing. Empty on failure; `problem` says why.
    static std::optional<StackTraceCollector> Open(const std::string& folder, std::string& problem);

    struct Copy {
        std::string path; ///< empty if nothing was copied
        std::uint64_t bytes = 0;
        std::string problem; ///< why there is no copy, or why it is incomplete
    };
    /// Copies the file that a notification names, under its own name, or under that name and a number if it
    /// is taken. The sender of a notification is not trusted: anything but a regular file with the name of a
    /// stack trace is refused, and a long file is cut. The copy appears under its name once it has been
    /// written.
    Copy Take(const std::string& path) const;

  private:
    StackTraceCollector(std::string folder, Descriptor descriptor)
        : folder_(std::move(folder)), descriptor_(std::move(descriptor)) {}

    int Create(std::string& name) const;
    bool Publish(const std::string& temporary, std::string& name) const;

    std::string folder_;
    Descriptor descriptor_;
};

} // namespace NimaPost
