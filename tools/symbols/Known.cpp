#include "tools/symbols/Known.h"

#include "tools/base/BuildId.h"
#include "tools/manifest/Manifest.h"

#include <filesystem>
#include <system_error>
#include <utility>

namespace NimaPost {

namespace fs = std::filesystem;

std::vector<KnownBuild> KnownModules::Builds() const {
    std::vector<KnownBuild> builds = programs;
    for (const LoadedModule& module : loaded) {
        builds.push_back(module.build);
    }
    return builds;
}

void KnownModules::Take(const InputFile& file) {
    Take(file, file.ReadAll(kFrontBytes));
}

void KnownModules::Take(const InputFile& file, std::string_view front) {
    if (LooksLikeElf(front)) {
        programs.push_back({file.Path(), BuildIdOf(file)});
    }
    Findings told; // by whoever reads the manifest for its own sake
    const auto manifest =
        LooksLikeManifest(front) ? ReadManifest(file.ReadAll(kMostTextBytes), told) : std::nullopt;
    if (!manifest) {
        return;
    }
    for (const Manifest::Program& program : manifest->programs) {
        programs.push_back({program.path, program.buildId});
    }
    for (const Manifest::Process& process : manifest->processes) {
        for (const Manifest::Module& module : process.modules) {
            loaded.push_back({{module.path, module.buildId}, module.address, process.id});
        }
    }
}

KnownModules KnownIn(const std::string& folder) {
    KnownModules known;
    std::error_code error;
    for (fs::directory_iterator entries(folder, error); !error && entries != fs::directory_iterator();
         entries.increment(error)) {
        std::string problem;
        std::error_code unknown;
        const auto file = entries->is_regular_file(unknown)
                              ? InputFile::Open(entries->path().string(), problem)
                              : std::nullopt;
        if (file) {
            known.Take(*file);
        }
    }
    return known;
}

KnownModules KnownIn(Device& device) {
    KnownModules known;
    for (EvidenceFile& each : device.files) {
        const bool wasOpen = each.content.has_value();
        std::string problem;
        auto file = each.Open(problem);
        if (file) {
            known.Take(*file);
        }
        if (wasOpen) {
            each.content = std::move(file);
        }
    }
    return known;
}

} // namespace NimaPost
