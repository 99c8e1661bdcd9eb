#pragma once

#include "tools/axis/Processes.h"

#include <cstddef>
#include <optional>
#include <string>

namespace NimaPost {

/// Which boot and process of the device is asked for.
struct Selection {
    std::optional<std::size_t> boot;
    std::optional<std::size_t> process;

    /// Whether something is of them: an event or a crash. What is not known to be is not.
    template <class Thing>
    bool Takes(const Thing& thing) const {
        return (!boot || thing.boot == boot) && (!process || thing.process == process);
    }
    /// Says what is asked for and is not there; empty if all is.
    std::string Missing(const Processes& known) const;
};

} // namespace NimaPost
