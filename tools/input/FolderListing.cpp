#include "tools/input/FolderListing.h"

#include <algorithm>
#include <filesystem>

namespace NimaPost {

namespace fs = std::filesystem;

FolderListing::FolderListing(const std::string& folder) {
    fs::directory_iterator entries(folder, error);
    for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
        std::error_code unknown;
        const fs::file_type type = entries->status(unknown).type();
        // A link to a folder may lead back.
        if (entries->symlink_status(unknown).type() == fs::file_type::directory) {
            folders.push_back(entries->path().filename());
        } else if (type == fs::file_type::regular || type == fs::file_type::not_found ||
                   type == fs::file_type::unknown || type == fs::file_type::none) {
            // What cannot be told, such as where a broken link leads, is reported when it cannot be opened.
            files.push_back(entries->path().filename());
        }
    }
    std::sort(files.begin(), files.end());
    std::sort(folders.begin(), folders.end());
}

} // namespace NimaPost
