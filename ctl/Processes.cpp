#include "ctl/Processes.h"

#include "tools/base/Json.h"
#include "tools/base/Process.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>

#include <sys/mman.h>
#include <unistd.h>

namespace NimaCtl {

namespace {

/// A line of /proc/<process>/maps: "begin-end perms offset device inode path".
struct MapsLine {
    std::string range, permissions, offset, device, inode;

    explicit MapsLine(const std::string& line) {
        std::istringstream(line) >> range >> permissions >> offset >> device >> inode;
    }
    bool SameFile(const MapsLine& other) const {
        return device == other.device && inode == other.inode && inode != "0";
    }
};

/// How the kernel shows the file among the mappings; on some file systems `stat` gives other numbers. The
/// page that is mapped for this is never touched.
MapsLine AsMapped(int file) {
    void* const page = mmap(nullptr, 1, PROT_READ, MAP_SHARED, file, 0);
    if (page == MAP_FAILED) {
        return MapsLine("");
    }
    char begin[24];
    std::snprintf(begin, sizeof(begin), "%08llx-",
                  static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(page)));
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line) && !line.starts_with(begin)) {
    }
    munmap(page, 1);
    return MapsLine(line);
}

bool Maps(std::ifstream& maps, const MapsLine& wanted) {
    for (std::string line; std::getline(maps, line);) {
        if (MapsLine(line).SameFile(wanted)) {
            return true;
        }
    }
    return false;
}

} // namespace

MappingProcesses ProcessesThatMap(int file) {
    MappingProcesses result;
    const MapsLine wanted = AsMapped(file);
    std::error_code error;
    for (std::filesystem::directory_iterator each("/proc", error), end; !error && each != end;
         each.increment(error)) {
        std::uint64_t id = 0;
        if (!NimaPost::ParseNumber(each->path().filename().native(), id) ||
            id == static_cast<std::uint64_t>(getpid())) {
            continue;
        }
        std::ifstream maps(each->path() / "maps");
        const auto state = NimaPost::StateOfProcess(static_cast<std::uint32_t>(id));
        if (!maps) {
            result.hidden += state.lives ? 1 : 0;
        } else if (Maps(maps, wanted)) {
            result.processes.push_back({static_cast<pid_t>(id), state.name});
        }
    }
    std::sort(result.processes.begin(), result.processes.end(),
              [](const auto& a, const auto& b) { return a.id < b.id; });
    return result;
}

bool IsHeldUp(pid_t process) {
    std::error_code error;
    std::filesystem::directory_iterator each("/proc/" + std::to_string(process) + "/task", error);
    for (; !error && each != std::filesystem::directory_iterator(); each.increment(error)) {
        std::ifstream file(each->path() / "stat");
        std::string text;
        std::getline(file, text, '\0');
        // "4711 (name) T ...", where the name may contain any character.
        const std::size_t close = text.rfind(')');
        if (close != std::string::npos && close + 2 < text.size() &&
            std::string_view("TtD").find(text[close + 2]) != std::string_view::npos) {
            return true;
        }
    }
    return false;
}

Json ProcessesJson(const MappingProcesses& mapping) {
    Json list = Json::array();
    for (const MappingProcess& process : mapping.processes) {
        list.push_back({{"process", process.id}, {"name", NimaPost::ToUtf8(process.name)}});
    }
    return list;
}

std::string ProcessesText(const MappingProcesses& mapping) {
    std::string text;
    for (const MappingProcess& process : mapping.processes) {
        text +=
            (text.empty() ? "" : ", ") + std::to_string(process.id) + " " + NimaPost::Printable(process.name);
    }
    if (text.empty()) {
        text = "none";
    }
    if (mapping.hidden > 0) {
        text += "; " + NimaPost::Counted(mapping.hidden, "process") + " could not be looked at";
    }
    return text;
}

} // namespace NimaCtl
