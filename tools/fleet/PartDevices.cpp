#include "tools/fleet/PartDevices.h"

#include "tools/fleet/CaseReader.h"
#include "tools/story/Folder.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <utility>

namespace NimaPost {

namespace {

/// Whether it holds files none of which can be opened, so that nobody knows what it is.
bool IsClosed(const Device& device) {
    return !device.files.empty() && std::all_of(device.files.begin(), device.files.end(),
                                                [](const auto& file) { return !file.problem.empty(); });
}

void Read(const EvidencePart& part, const InputLimits& limits, Findings& found,
          const std::function<bool(Device&)>& take) {
    if (!part.problem.empty()) {
        found.Damage("cannot-open", part.problem);
    }
    if (!part.isArchive && part.files.empty()) {
        return;
    }
    Evidence evidence = ReadPart(part, limits);
    found = Joined(std::move(found), evidence.findings);
    for (Device& device : evidence.devices) {
        if (HoldsEvidence(device)) {
            if (!take(device)) {
                return;
            }
        } else if (IsClosed(device) && !part.holdsParts) {
            found.Damage("cannot-open", device.files.front().problem);
        }
    }
}

} // namespace

std::string AbsolutePath(const std::string& path) {
    std::error_code error;
    std::filesystem::path absolute = std::filesystem::absolute(path, error).lexically_normal();
    if (absolute.filename().empty() && absolute.has_relative_path()) {
        absolute = absolute.parent_path();
    }
    return error ? path : absolute.string();
}

void ForEachDevice(const EvidencePart& part, const InputLimits& limits, Findings& found,
                   const std::function<bool(Device&)>& take) {
    try {
        Read(part, limits, found, take);
    } catch (const std::exception& error) {
        // One folder is to cost no other.
        found.Damage("cannot-read", part.path + ": " + error.what());
    }
}

CaseData CaseOf(Device& device, const EvidencePart& part, const DeviceNames& names) {
    CaseData data;
    data.path = AbsolutePath(part.path);
    data.member = device.name;
    data.device = names.Of(part.path, device.name);
    data.content = ContentOf(device);
    return data;
}

} // namespace NimaPost
