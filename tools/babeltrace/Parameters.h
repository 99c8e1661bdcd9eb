#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <babeltrace2/babeltrace.h>

namespace NimaPost {

/// What the component is told by who runs babeltrace.
struct FolderParameters {
    std::vector<std::string> inputs;
    std::string names;                     ///< a dictionary's path; empty if there is none
    std::optional<std::int64_t> utcOffset; ///< nanoseconds; empty if the folder is to tell it
    bool forceAbsolute = false;
};

/// False, with the reason, if one is not known or not of its type, or if there is no input.
bool ReadParameters(const bt_value* parameters, FolderParameters& out, std::string& problem);

} // namespace NimaPost
