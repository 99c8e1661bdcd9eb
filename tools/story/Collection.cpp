#include "tools/story/Collection.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"
#include "tools/base/WallClock.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>

namespace NimaPost {

namespace {

FolderFile* FindFile(std::vector<FolderFile>& files, const std::string& name) {
    for (FolderFile& file : files) {
        // The manifest is UTF-8, whatever the name is.
        if (ToUtf8(file.name) == name || ToUtf8(file.plainName) == name) {
            return &file;
        }
    }
    return nullptr;
}

/// An archive is a device of its own, and none of the files beside it.
bool IsNamedAsArchive(const std::string& name) {
    constexpr std::array<std::string_view, 9> kEndings{".tar",     ".tar.gz",   ".tgz", ".tar.bz2", ".tar.xz",
                                                       ".tar.zst", ".tar.lzma", ".zip", ".txz"};
    return std::any_of(kEndings.begin(), kEndings.end(),
                       [&](std::string_view ending) { return name.ends_with(ending); });
}

std::string InWords(const Manifest& manifest, const CollectedMoment& moment) {
    std::string text = "The files were collected at ";
    AppendWallTime(text, moment.local);
    text += " of the device's local time";
    text += manifest.zone.empty() ? "" : " (" + ToUtf8(manifest.zone) + ")";
    text += manifest.host.empty() ? "" : " on " + ToUtf8(manifest.host);
    return text + ", " + Duration(moment.local - moment.bootedAt) + " after its boot.";
}

} // namespace

std::optional<Manifest> ManifestSource::ReadContent(FolderFile& file, InputFile& input) {
    return ReadManifest(input.ReadAll(kMostTextBytes), file.findings);
}

void ApplyManifest(const Manifest& manifest, std::vector<FolderFile>& files, Axis& axis) {
    std::string missing;
    std::string otherSize;
    for (const Manifest::File& told : manifest.files) {
        FolderFile* const file = FindFile(files, told.name);
        if (file == nullptr && IsNamedAsArchive(told.name)) {
            continue;
        }
        if (file == nullptr) {
            missing += (missing.empty() ? "" : ", ") + told.name;
            continue;
        }
        file->modified = told.modified ? told.modified : file->modified;
        const bool unpacked = file->plainName != file->name;
        if (told.bytes && !file->unusable && !unpacked && *told.bytes != file->bytes) {
            otherSize += (otherSize.empty() ? "" : ", ") + told.name;
        }
    }
    if (!missing.empty()) {
        axis.Contradict("these files are not here: " + missing);
    }
    if (!otherSize.empty()) {
        axis.Contradict("these files have another size: " + otherSize);
    }
    const auto moment = manifest.Moment();
    if (!moment) {
        return;
    }
    Collection collection{*moment, *manifest.utcOffsetSeconds * kSecond, {}};
    for (const auto& [name, processes] : manifest.mappedBy) {
        const FolderFile* const file = FindFile(files, name);
        if (file != nullptr && !processes.empty()) {
            collection.mapped.insert(file->index);
        }
    }
    axis.SetCollection(std::move(collection));
    axis.State({"manifest", InWords(manifest, *moment)});
}

void ReportContradictions(const Axis& axis, FolderFile& manifest) {
    for (const std::string& what : axis.Contradictions()) {
        manifest.findings.Damage("manifest-contradicted",
                                 "The manifest and the files contradict each other: " + what + ".");
    }
}

} // namespace NimaPost
