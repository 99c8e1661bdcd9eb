#pragma once

#include "tools/base/Findings.h"
#include "tools/base/Pattern.h"
#include "tools/fleet/export/TableRow.h"
#include "tools/input/InputLimits.h"
#include "tools/names/Names.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace NimaPost {

/// What is to become tables, and where.
struct ExportTask {
    std::vector<std::string> paths;
    std::string folder;
    TableForm form = TableForm::kJsonl;
    std::optional<Pattern> deviceFrom; ///< takes the device's name out of a path
    unsigned threads = 1;
    InputLimits limits;
};

/// What became of it.
struct ExportResult {
    std::uint64_t cases = 0;        ///< that were written
    std::uint64_t damagedCases = 0; ///< of these, in which something is damaged
    std::uint64_t events = 0;
    std::uint64_t crashes = 0; ///< a crash that several cases hold counts once
    std::uint64_t files = 0;
    Findings findings; ///< of what could not be read, and of archives
};

/// Writes the tables of doc/schema.md, several cases at a time, and gives the files their names case by case,
/// in the order in which they were found. False, with the reason, if something cannot be written: then the
/// cases before are complete, and of this one nothing is there, or some of its files.
bool Export(const ExportTask& task, const Names& names, ExportResult& result, std::string& problem);

} // namespace NimaPost
