#include "tools/symbols/SymbolFiles.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include <sys/stat.h>

namespace NimaPost {

namespace fs = std::filesystem;

namespace {

/// A whole root file system with its debug files has a few ten thousand.
constexpr std::size_t kMostFiles = 200'000;
constexpr int kDeepest = 32;

std::string BaseName(const std::string& path) {
    return fs::path(path).filename().string();
}

/// "libscan.so" for "libscan.so.debug" as well.
std::string ModuleName(const std::string& path) {
    constexpr std::string_view kDebug = ".debug";
    std::string name = BaseName(path);
    if (name.ends_with(kDebug)) {
        name.resize(name.size() - kDebug.size());
    }
    return name;
}

/// Which file a path leads to, whatever its name.
std::string FileKey(const struct stat& status) {
    return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

} // namespace

void SymbolModule::Add(ElfImage& image) {
    files_.push_back(&image);
    if (image.HasAllNames() && !names_->HasAllNames()) {
        names_ = &image;
    }
    if (image.HasLines() && lines_ == nullptr) {
        lines_ = &image;
    }
}

const std::vector<std::uint64_t>& SymbolModule::ValuesOf(const std::string& name,
                                                         const std::unordered_set<std::string>& wanted) {
    static const std::vector<std::uint64_t> kNone;
    if (!valuesRead_) {
        valuesRead_ = true;
        for (const ImageFunction& function : names_->Functions()) {
            std::string plain = PlainName(std::string(function.name));
            if (wanted.contains(plain)) {
                values_[std::move(plain)].push_back(function.value);
            }
        }
    }
    const auto found = values_.find(name);
    return found != values_.end() ? found->second : kNone;
}

const std::vector<Call>& SymbolModule::CallsAt(std::uint64_t address) {
    const auto [known, isNew] = calls_.try_emplace(address);
    std::vector<Call>& calls = known->second;
    if (!isNew) {
        return calls;
    }
    if (lines_ != nullptr && debug_ == nullptr) {
        debug_ = std::make_unique<DebugLines>(lines_->Handle());
    }
    if (debug_ != nullptr) {
        calls = debug_->CallsAt(address);
    }
    const ImageFunction* const function = names_->FunctionAt(address);
    if (calls.empty() && function != nullptr) {
        calls.emplace_back();
    }
    // The table of symbols knows a function's parameters where the debug information may not, and its parts.
    if (!calls.empty() && function != nullptr) {
        calls.back().function = PlainName(std::string(function->name));
    }
    return calls;
}

SymbolFiles::SymbolFiles(const std::vector<std::string>& places, const std::unordered_set<std::string>& left,
                         const FileInUse& inUse)
    : left_(left), inUse_(inUse) {
    for (const std::string& place : places) {
        Look(place);
    }
    JoinModules();
}

void SymbolFiles::Look(const std::string& place) {
    std::error_code error;
    if (!fs::exists(place, error)) {
        problems_.push_back({SymbolProblem::Kind::kUnread, place, "no folder or file of this name"});
        return;
    }
    if (!fs::is_directory(place, error)) {
        Take(place);
        return;
    }
    std::vector<std::string> paths;
    fs::recursive_directory_iterator entries(place, fs::directory_options::skip_permission_denied, error);
    for (; !error && entries != fs::recursive_directory_iterator(); entries.increment(error)) {
        if (entries.depth() >= kDeepest) {
            entries.disable_recursion_pending();
        }
        std::error_code unknown;
        if (paths.size() < kMostFiles && entries->is_regular_file(unknown)) {
            paths.push_back(entries->path().string());
        }
    }
    if (error) {
        problems_.push_back({SymbolProblem::Kind::kDamaged, place, error.message()});
    }
    std::sort(paths.begin(), paths.end());
    for (const std::string& path : paths) {
        Take(path);
    }
}

void SymbolFiles::Take(const std::string& path) {
    struct stat status {};
    if (left_.contains(path) || ::stat(path.c_str(), &status) != 0 || !seen_.insert(FileKey(status)).second) {
        return;
    }
    inUse_(path);
    std::string problem;
    auto image = ElfImage::Open(path, problem);
    if (image == nullptr) {
        if (!problem.empty()) {
            problems_.push_back({SymbolProblem::Kind::kDamaged, path, problem});
        }
        return;
    }
    if (image->NeedsOtherFile()) {
        problems_.push_back({SymbolProblem::Kind::kUnread, path,
                             "part of its debug information is in another file, so that no lines are read"});
    }
    images_.push_back(std::move(image));
}

/// A module is one build: its files have the same build id, or one names the other with its check sum.
SymbolModule* SymbolFiles::FindModule(const ElfImage& image) {
    if (!image.BuildId().empty()) {
        const auto known = byId_.find(image.BuildId());
        return known != byId_.end() ? known->second : nullptr;
    }
    const auto links = [](const ElfImage& from, const ElfImage& to) {
        return !from.DebugLink().empty() && from.DebugLink() == BaseName(to.Path()) &&
               from.DebugLinkSum() == to.CheckSum();
    };
    for (SymbolModule* const module : withoutId_) {
        for (const ElfImage* const file : module->Files()) {
            if (links(image, *file) || links(*file, image)) {
                return module;
            }
        }
    }
    return nullptr;
}

void SymbolFiles::JoinModules() {
    for (const auto& image : images_) {
        inUse_(image->Path());
        if (SymbolModule* const module = FindModule(*image)) {
            module->Add(*image);
            continue;
        }
        SymbolModule* const module = modules_.emplace_back(std::make_unique<SymbolModule>(*image)).get();
        if (image->BuildId().empty()) {
            withoutId_.push_back(module);
        } else {
            byId_[image->BuildId()] = module;
        }
    }
}

void SymbolFiles::Match(const std::vector<KnownBuild>& known) {
    std::unordered_set<std::string> ids;
    std::unordered_map<std::string, std::string> idOf;
    for (const KnownBuild& build : known) {
        if (!build.buildId.empty()) {
            ids.insert(build.buildId);
            idOf[BaseName(build.path)] = build.buildId;
        }
    }
    std::unordered_set<std::string> matched;
    for (const auto& module : modules_) {
        if (ids.contains(module->BuildId())) {
            module->Confirm();
            matched.insert(module->BuildId());
        }
    }
    std::erase_if(modules_, [&](const auto& module) {
        if (module->IsConfirmed()) {
            return false;
        }
        for (const ElfImage* const file : module->Files()) {
            const auto wanted = idOf.find(ModuleName(file->Path()));
            if (wanted == idOf.end()) {
                continue;
            }
            if (!matched.contains(wanted->second)) {
                const std::string own = module->BuildId().empty() ? "none" : module->BuildId();
                problems_.push_back({SymbolProblem::Kind::kOtherBuild, file->Path(),
                                     "of another build: its build id is " + own +
                                         ", that of the device's file is " + wanted->second});
            }
            return true;
        }
        return false;
    });
}

} // namespace NimaPost
