#include "ctl/Modules.h"

#include "tools/base/BuildId.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <fstream>
#include <optional>
#include <string_view>

namespace NimaCtl {

namespace {

/// A line of /proc/<process>/maps: "begin-end perms offset device inode   path".
struct Mapping {
    std::uint64_t begin = 0;
    std::uint64_t offset = 0;
    bool executable = false;
    std::string path;
};

std::optional<Mapping> Parse(std::string_view line) {
    Mapping mapping;
    std::uint64_t end = 0;
    if (!NimaPost::TakeHex(line, mapping.begin) || !NimaPost::TakeLiteral(line, "-") ||
        !NimaPost::TakeHex(line, end) || line.size() < 6) {
        return std::nullopt;
    }
    mapping.executable = line[3] == 'x';
    line.remove_prefix(6);
    const std::size_t path = line.find('/');
    if (!NimaPost::TakeHex(line, mapping.offset) || path == std::string_view::npos) {
        return std::nullopt;
    }
    line.remove_prefix(line.find('/'));
    mapping.path = line;
    return mapping;
}

} // namespace

std::vector<Module> ModulesOf(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process);
    std::vector<Module> modules;
    std::vector<std::string> executable;
    std::ifstream maps(folder + "/maps");
    for (std::string line; std::getline(maps, line);) {
        const auto mapping = Parse(line);
        if (!mapping) {
            continue;
        }
        if (modules.empty() || modules.back().path != mapping->path) {
            modules.push_back({mapping->path, mapping->begin - mapping->offset, {}});
        }
        if (mapping->executable) {
            executable.push_back(mapping->path);
        }
    }
    std::erase_if(modules, [&](const Module& module) {
        return std::find(executable.begin(), executable.end(), module.path) == executable.end();
    });
    for (Module& module : modules) {
        // As the process sees the path, which may have a root of its own.
        module.buildId = NimaPost::BuildIdOf(folder + "/root" + module.path);
    }
    return modules;
}

} // namespace NimaCtl
