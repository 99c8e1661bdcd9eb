#pragma once

#include "tools/base/InputFile.h"
#include "tools/input/Evidence.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// A build of a program or a library, as the evidence names it.
struct KnownBuild {
    std::string path;
    std::string buildId; ///< hexadecimal; empty where the file has none
};

/// A module of a process, as a manifest names it.
struct LoadedModule {
    KnownBuild build;
    std::uint64_t address = 0; ///< where the file's first byte is
    std::uint32_t process = 0; ///< the system's identifier
};

/// What the evidence says about the builds of programs and libraries.
struct KnownModules {
    std::vector<KnownBuild> programs;
    std::vector<LoadedModule> loaded;

    bool IsEmpty() const { return programs.empty() && loaded.empty(); }
    std::vector<KnownBuild> Builds() const;
    /// Takes what a file of the evidence tells: a manifest, or one of the device's programs itself.
    void Take(const InputFile& file);
    /// The same where it is known already what the file begins with.
    void Take(const InputFile& file, std::string_view front);
};

/// What the files of a folder tell, without those of its folders.
KnownModules KnownIn(const std::string& folder);
/// What the files of a device tell that have not been handed over yet.
KnownModules KnownIn(Device& device);

} // namespace NimaPost
