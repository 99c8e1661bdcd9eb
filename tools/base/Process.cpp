#include "tools/base/Process.h"

#include <fstream>
#include <string>

namespace NimaPost {

ProcessState StateOfProcess(std::uint32_t id) {
    std::ifstream file("/proc/" + std::to_string(id) + "/stat");
    std::string text;
    std::getline(file, text, '\0'); // a process that ends meanwhile is a read error, and no exception
    // "4711 (name) S ...", where the name may contain any character.
    const std::size_t open = text.find('(');
    const std::size_t close = text.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open || close + 2 >= text.size()) {
        return {};
    }
    const char state = text[close + 2];
    if (state == 'Z' || state == 'X') {
        return {};
    }
    return {true, text.substr(open + 1, close - open - 1)};
}

} // namespace NimaPost
