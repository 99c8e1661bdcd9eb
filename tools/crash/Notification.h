#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace NimaPost {

/// A crash notification, doc/stack-trace.md. Anybody on the machine can send one, so nothing in it is more
/// than a claim.
struct CrashNotification {
    std::string file;       ///< path of the stack-trace file
    std::string coreFolder; ///< where the kernel writes core files
};

/// Empty for a datagram that is none.
std::optional<CrashNotification> ParseNotification(std::string_view datagram);

/// The process of a stack-trace file by its name, "stacktrace<process id>-<number>.txt"; empty for any other.
std::optional<std::uint32_t> StackTraceProcess(std::string_view name);

/// What stands behind the last slash.
std::string_view LastComponent(std::string_view path);

} // namespace NimaPost
