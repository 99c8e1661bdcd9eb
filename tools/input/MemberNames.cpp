#include "tools/input/MemberNames.h"

#include <algorithm>

namespace NimaPost {

std::string NameUnpacked(const std::string& name) {
    for (const std::string_view suffix : kCompressedSuffixes) {
        if (!suffix.empty() && name.size() > suffix.size() && name.ends_with(suffix)) {
            return name.substr(0, name.size() - suffix.size());
        }
    }
    return name;
}

std::vector<std::string> PartsOfName(std::string_view name, bool& odd) {
    std::vector<std::string> parts;
    odd = name.starts_with('/');
    while (!name.empty()) {
        const std::size_t end = std::min(name.find('/'), name.size());
        const std::string_view part = name.substr(0, end);
        if (part == "..") {
            odd = true;
        } else if (!part.empty() && part != ".") {
            parts.emplace_back(part);
        }
        name.remove_prefix(std::min(end + 1, name.size()));
    }
    return parts;
}

} // namespace NimaPost
