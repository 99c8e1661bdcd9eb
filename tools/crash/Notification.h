#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace NimaPost {

/// A crash notification, doc/stack-trace.md. Any program on the machine can send one, so everything in it is
/// only a claim.
struct CrashNotification {
    std::string file;       ///< path of the stack-trace file
    std::string coreFolder; ///< where the kernel writes core files
};

/// Empty if the datagram is not a notification.
std::optional<CrashNotification> ParseNotification(std::string_view datagram);

/// What the name of a stack-trace file says, "stacktrace<process id>-<number>.txt".
struct StackTraceName {
    std::uint32_t process = 0;
    std::int64_t number = 0;

    bool operator<(const StackTraceName& other) const {
        return std::pair(process, number) < std::pair(other.process, other.number);
    }
};

/// Empty for any other name.
std::optional<StackTraceName> ParseStackTraceName(std::string_view name);

/// What follows the last slash.
std::string_view LastComponent(std::string_view path);

} // namespace NimaPost
