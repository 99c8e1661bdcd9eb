#pragma once

#include "tools/base/Findings.h"
#include "tools/base/Pattern.h"
#include "tools/input/InputLimits.h"
#include "tools/names/Names.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace NimaPost {

/// What is to be read into a database, and how.
struct IndexTask {
    std::vector<std::string> paths;
    std::string database;
    std::optional<Pattern> deviceFrom; ///< takes the device's name out of a path
    unsigned threads = 1;
    InputLimits limits;
};

/// What became of it.
struct IndexResult {
    std::uint64_t cases = 0;        ///< that were found
    std::uint64_t newCases = 0;     ///< of these, which the database did not have
    std::uint64_t damagedCases = 0; ///< of these, in which something is damaged
    std::uint64_t newCrashes = 0;
    Findings findings; ///< of what could not be read, and of archives
};

/// Reads all folders and archives, several at a time, and puts what they tell into the database in the order
/// in which they were found: what an interrupted run left out is all that the next one adds. A database is
/// made only for the first of them.
IndexResult Index(const IndexTask& task, const Names& names);

} // namespace NimaPost
