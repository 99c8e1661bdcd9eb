#pragma once

#include "tools/base/Pattern.h"
#include "tools/fleet/Database.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace NimaPost {

/// Crashes of one signature on devices with one version of the firmware.
struct FirmwareShare {
    std::optional<std::string> version; ///< empty where no log tells it
    std::int64_t devices = 0;
    std::int64_t crashes = 0;
};

/// A cause, and what it struck.
struct RankedSignature {
    std::string signature;
    std::int64_t devices = 0;
    std::int64_t crashes = 0;
    std::optional<std::string> first; ///< empty where none of them has a date
    std::optional<std::string> last;
    std::string example;       ///< a folder or an archive to look at
    std::string exampleMember; ///< the device in the archive; empty for its top, and for a folder
    std::int64_t exampleCrash = 0;
    std::vector<FirmwareShare> firmware; ///< the most devices first; empty unless versions are asked for
};

struct FleetTotals {
    std::int64_t devices = 0;
    std::int64_t cases = 0;
    std::int64_t crashes = 0;
};

FleetTotals TotalsOf(const Database& database);

/// All signatures, that which struck the most devices first. `versionFrom` takes the firmware's version out
/// of a message.
std::vector<RankedSignature> RankSignatures(const Database& database,
                                            const std::optional<Pattern>& versionFrom);

} // namespace NimaPost
