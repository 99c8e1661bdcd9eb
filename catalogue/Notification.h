#pragma once

/// The datagram that a dying process sends, doc/stack-trace.md: head, path of the stack-trace file, folder
/// mark, folder of the core files, end.

#include <cstdint>

namespace Nima::Catalogue {

/// On loopback.
inline constexpr std::uint16_t kNotificationPort = 65429;

inline constexpr char kNotificationHead[] = "crash-notification\r\nfile: ";
inline constexpr char kNotificationFolder[] = "\r\ndir:";
inline constexpr char kNotificationEnd[] = "\r\n";

} // namespace Nima::Catalogue
