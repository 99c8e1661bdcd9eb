#pragma once

#include "tools/base/Findings.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// The clocks of a device at one moment, after which nothing in the files was written but what came while
/// they were copied.
struct CollectedMoment {
    std::int64_t counter = 0;
    std::int64_t local = 0;    ///< local time, in nanoseconds since 1970 as if it were UTC
    std::int64_t bootedAt = 0; ///< the same of the boot, if the clock was not set since
};

/// What was noted about a device while its files were collected, doc/manifest.md. Every part may be missing:
/// of a damaged manifest only what holds is here.
struct Manifest {
    /// Read at one moment before the files were, in nanoseconds.
    struct Clocks {
        std::int64_t wall = 0; ///< since 1970, UTC
        std::int64_t monotonic = 0;
        std::int64_t counter = 0;
        std::int64_t uptime = 0; ///< with the time that the device was suspended
    };
    struct File {
        std::string name;
        std::optional<std::uint64_t> bytes;
        std::optional<std::int64_t> modified; ///< nanoseconds since 1970, UTC
        std::string problem;                  ///< why not all of it is in the archive; empty if it is
    };
    /// A program or library as a process had it loaded.
    struct Module {
        std::string path;
        std::uint64_t address = 0; ///< of the file's first byte
        std::string buildId;       ///< hexadecimal; empty if it has none
    };
    struct Process {
        std::uint32_t id = 0; ///< the system's
        std::string name;
        std::vector<Module> modules; ///< in the order of their addresses
    };
    struct Program {
        std::string path;
        std::string buildId; ///< empty if it has none
    };

    std::string bootId; ///< the kernel's; empty if it gave none
    std::optional<Clocks> clocks;
    std::string zone; ///< its name at that moment, such as "CET"
    std::optional<std::int64_t> utcOffsetSeconds;
    std::string host;
    std::vector<File> files;
    /// By a segment's name: the processes that had it mapped.
    std::map<std::string, std::vector<std::uint32_t>> mappedBy;
    std::vector<Process> processes;
    std::vector<Program> programs;

    /// Empty where clocks or time zone are missing.
    std::optional<CollectedMoment> Moment() const;
};

bool LooksLikeManifest(std::string_view front);

/// Empty if nothing of it can be used; the findings then say why.
std::optional<Manifest> ReadManifest(std::string_view text, Findings& findings);

} // namespace NimaPost
