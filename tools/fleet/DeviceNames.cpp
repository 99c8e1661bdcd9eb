#include "tools/fleet/DeviceNames.h"

#include "tools/base/Text.h"

#include <array>
#include <filesystem>
#include <string_view>

namespace NimaPost {

namespace {

constexpr std::array<std::string_view, 12> kArchiveSuffixes{".gz",   ".bz2", ".xz",   ".zst", ".tar", ".tgz",
                                                            ".tbz2", ".txz", ".tzst", ".zip", ".tbz", ".tzs"};

std::string WithoutSuffixes(std::string name) {
    for (bool again = true; again;) {
        again = false;
        for (const std::string_view suffix : kArchiveSuffixes) {
            if (name.size() > suffix.size() && name.ends_with(suffix)) {
                name.resize(name.size() - suffix.size());
                again = true;
            }
        }
    }
    return name;
}

/// The last part of a path, even if that is "." or has a slash at its end.
std::string LastName(const std::string& path) {
    std::error_code error;
    const std::filesystem::path real = std::filesystem::absolute(path, error).lexically_normal();
    const std::string name = real.filename().string();
    return name.empty() ? real.parent_path().filename().string() : name;
}

} // namespace

std::string DeviceNames::Of(const std::string& path, const std::string& member) const {
    if (pattern_) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (auto name = pattern_->Captured(member.empty() ? path : path + "/" + member)) {
            return ToUtf8(*name);
        }
    }
    std::error_code error;
    if (!member.empty()) {
        return ToUtf8(WithoutSuffixes(member.substr(member.rfind('/') + 1)));
    }
    const std::string name = LastName(path);
    return ToUtf8(std::filesystem::is_directory(path, error) ? name : WithoutSuffixes(name));
}

} // namespace NimaPost
