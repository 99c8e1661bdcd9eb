#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace NimaPost {

/// A crash notification, doc/stack-trace.md. Any program on the machine can send one, so everything in it is
/// only a claim.
struct CrashNotification {
    std::string file;       ///< path of the stack-trace file
    std::string coreFolder; ///< where the kernel writes core files
};

/// Empty if the datagram is not a notification.
std::optional<CrashNotification> ParseNotification(std::string_view datagram);

/// The process of a stack-trace file, from its name "stacktrace<process id>-<number>.txt"; empty for any
/// other name.
std::optional<std::uint32_t> StackTraceProcess(std::string_view name);

/// What follows the last slash.
std::string_view LastComponent(std::string_view path);

} // namespace NimaPost
