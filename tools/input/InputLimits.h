#pragma once

#include "tools/base/InputFile.h"

#include <cstddef>
#include <cstdint>

namespace NimaPost {

/// How much is taken out of archives and compressed files before the rest is left alone: a few kilobytes can
/// claim to be anything.
struct InputLimits {
    std::uint64_t unpackedBytes = std::uint64_t{8} << 30; ///< of all members together
    /// How often larger than its compressed form a member may be, once it has `kFreeBytes`.
    std::uint64_t ratio = 200;
    std::size_t members = 100'000; ///< of all archives and folders together
    unsigned depth = 2;            ///< archives in archives
    std::uint64_t lineBytes = kMostLineBytes;

    static constexpr std::uint64_t kFreeBytes = 256 << 20;
};

} // namespace NimaPost
