#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Simulator {

/// Folders of many devices, some of which died of causes that are known.
struct FleetPlan {
    std::string folder;
    std::uint64_t devices = 1000;
    std::size_t bytes = std::size_t{1} << 20; ///< of a folder, about
    std::uint64_t seed = 1;
};

/// Writes a folder for each device, "unit-0001" and so on; for some of them another one in "later", fetched
/// after they had died once more; and "truth.json": `signatures` with `signature`, `devices` and `crashes`,
/// in the order in which they have to be listed.
void MakeFleet(const FleetPlan& plan);

} // namespace Simulator
