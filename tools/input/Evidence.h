#pragma once

#include "tools/base/FileIdentity.h"
#include "tools/base/Findings.h"
#include "tools/base/InputFile.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace NimaPost {

/// A file of a device, wherever it comes from.
struct EvidenceFile {
    std::string name;                     ///< in its folder: "device.log.1.xz"
    std::string plainName;                ///< as it was before it was compressed: "device.log.1"
    std::string path;                     ///< as people are told: "unit.tar.gz/unit-4711/device.log.1.xz"
    std::optional<std::int64_t> modified; ///< nanoseconds since 1970
    std::optional<FileIdentity> identity; ///< of what is a file on its own
    bool named = false;                   ///< in the call, rather than found in a folder or an archive
    bool backup = false;                  ///< taken in because it is the backup of a named one

    /// Set while the file is open or was unpacked; others are opened when they are needed.
    std::optional<InputFile> content;
    std::string problem; ///< why it cannot be opened; empty if nothing is known against it

    /// Hands over the content; empty, with the reason, if there is none.
    std::optional<InputFile> Open(std::string& reason);
    /// What it begins with, and its size; empty where it cannot be read.
    std::string Front(std::uint64_t& size);
};

/// The files of one folder, which are those of one device.
struct Device {
    /// Where it is within what was named: "unit-4711", "units.zip/unit-4711"; empty for its top.
    std::string name;
    std::vector<EvidenceFile> files; ///< sorted by name
};

/// What the arguments of a call lead to.
struct Evidence {
    std::vector<Device> devices;
    Findings findings; ///< of archives and folders as such
    /// Files that were read and are no evidence themselves, such as archives: not to be written over.
    std::vector<FileIdentity> inputs;
};

} // namespace NimaPost
