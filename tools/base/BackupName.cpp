#include "tools/base/BackupName.h"

#include "tools/base/Text.h"

namespace NimaPost {

BackupName SplitBackupName(const std::string& name, std::uint64_t most) {
    const std::size_t point = name.rfind('.');
    std::uint64_t number = 0;
    if (point != std::string::npos && point > 0 && point + 1 < name.size() && name[point + 1] != '0' &&
        ParseNumber(std::string_view(name).substr(point + 1), number) && number <= most) {
        return {name.substr(0, point), number};
    }
    return {name, 0};
}

} // namespace NimaPost
