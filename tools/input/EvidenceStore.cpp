#include "tools/input/EvidenceStore.h"

#include "tools/base/Text.h"

#include <algorithm>
#include <utility>

namespace NimaPost {

namespace {

/// Two files that were one name before one of them was compressed are two logs.
void KeepNamesApart(std::map<std::string, EvidenceFile>& files) {
    std::map<std::string, int> plain;
    for (const auto& [name, file] : files) {
        ++plain[file.plainName];
    }
    for (auto& [name, file] : files) {
        if (plain[file.plainName] > 1) {
            file.plainName = name;
            if (file.content) {
                file.content->SetPlainPath(file.path);
            }
        }
    }
}

} // namespace

std::string SizeInWords(std::uint64_t bytes) {
    constexpr unsigned kStep = 1024;
    const char* unit = nullptr;
    for (const char* const next : {"KiB", "MiB", "GiB"}) {
        if (bytes < kStep || bytes % kStep != 0) {
            break;
        }
        bytes /= kStep;
        unit = next;
    }
    return unit != nullptr ? std::to_string(bytes) + " " + unit : Counted(bytes, "byte");
}

bool EvidenceStore::Keep(EvidenceFile file, const Place& place) {
    if (file.plainName.empty()) {
        file.plainName = file.name;
    }
    if (file.content) {
        file.content->SetMostLineBytes(limits_.lineBytes);
    }
    const std::string name = file.name;
    return devices_[place.device].insert_or_assign(name, std::move(file)).second;
}

bool EvidenceStore::CountMember(const std::string& path) {
    if (!stopped_ && ++members_ > limits_.members) {
        stopped_ = true;
        ReachLimit(path, "more than " + std::to_string(limits_.members) + " files in all", "--max-members");
    }
    return !stopped_;
}

bool EvidenceStore::Append(std::string_view bytes, const std::string& path) {
    const std::uint64_t room = limits_.unpackedBytes - std::min(limits_.unpackedBytes, bytes_);
    const std::string_view fits =
        bytes.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), room)));
    if (!AppendPacked(fits, path)) {
        return false;
    }
    bytes_ += fits.size();
    if (fits.size() < bytes.size()) {
        stopped_ = true;
        ReachLimit(path, "more than " + SizeInWords(limits_.unpackedBytes) + " unpacked in all",
                   "--max-unpacked");
    }
    return !stopped_;
}

bool EvidenceStore::AppendPacked(std::string_view bytes, const std::string& path) {
    std::string problem;
    if (!unpacked_.Append(bytes, problem)) {
        findings_.Damage("cannot-unpack", path + ": " + problem + "; the rest is not read.");
        stopped_ = true;
    }
    return !stopped_;
}

void EvidenceStore::DropMember() {
    bytes_ -= unpacked_.Size();
    unpacked_.Finish();
}

void EvidenceStore::ReachLimit(const std::string& path, const std::string& what, const char* option) {
    findings_.Damage("archive-limit",
                     path + ": " + what + "; the rest is not read (" + option + " allows more).");
}

Evidence EvidenceStore::Take() {
    Evidence evidence;
    for (auto& [name, files] : devices_) {
        KeepNamesApart(files);
        Device device{name, {}};
        for (auto& [file, each] : files) {
            device.files.push_back(std::move(each));
        }
        evidence.devices.push_back(std::move(device));
    }
    devices_.clear();
    evidence.findings = std::move(findings_);
    evidence.inputs = std::move(inputs_);
    return evidence;
}

} // namespace NimaPost
