#pragma once

#include "ctl/Processes.h"
#include "tools/base/Json.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace NimaCtl {

/// What became of a file of the directory.
struct CollectedFile {
    std::string name;
    std::uint64_t bytes = 0;
    std::int64_t modifiedNanoseconds = 0; ///< since 1970
    std::uint32_t blankedSlots = 0;       ///< of the binary trace, overwritten while they were copied
    std::string problem;                  ///< why it is not, or not whole, in the archive; empty if it is
    std::string damage;                   ///< of the binary trace, which is then packed as it is
    bool inArchive = true;
    bool unreadable = false; ///< it should have been in the archive
};

constexpr const char* kManifestName = "manifest.json";
constexpr std::int64_t kSecond = 1'000'000'000;

/// Clocks read at one moment, in nanoseconds.
struct Clocks {
    std::int64_t wall = 0;
    std::int64_t monotonic = 0;
    std::int64_t boot = 0;
    std::int64_t apart = 0; ///< how long reading all of them took

    /// What a writer would stamp on a record at that moment.
    std::int64_t Counter() const { return monotonic / kSecond + monotonic % kSecond; }
};

Clocks ReadClocks();

/// The document of an archive, doc/manifest.md.
struct Manifest {
    std::string directory;
    Clocks clocks;
    std::vector<CollectedFile> files;
    /// By the name of the segment.
    std::map<std::string, MappingProcesses> segments;
    std::vector<std::string> programs;
    std::optional<Json> recording; ///< what `record` did

    Json ToJson() const;
};

/// A file that has been put into the collection.
CollectedFile DescribeFile(const std::string& path, const std::string& name);

/// The processes that have the segments of a directory mapped.
void FindProcesses(Manifest& manifest, const std::string& directory);

} // namespace NimaCtl
