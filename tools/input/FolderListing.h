#pragma once

#include <string>
#include <system_error>
#include <vector>

namespace NimaPost {

/// The files and folders in a folder, sorted by name.
struct FolderListing {
    explicit FolderListing(const std::string& folder);

    std::vector<std::string> files;
    std::vector<std::string> folders;
    std::error_code error; ///< why not all of it could be listed
};

} // namespace NimaPost
