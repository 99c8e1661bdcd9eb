#include "ctl/Manifest.h"

#include "catalogue/Files.h"
#include "ctl/Modules.h"
#include "ctl/block/Segment.h"
#include "tools/base/BuildId.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>

#include <sys/stat.h>
#include <sys/utsname.h>

namespace NimaCtl {

namespace {

using NimaPost::ToUtf8;

constexpr int kVersion = 1;

std::int64_t Now(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

Json TextOrNull(const std::string& text) {
    return text.empty() ? Json() : Json(ToUtf8(text));
}

std::string FirstLine(const char* path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

Json ClocksJson(const Clocks& clocks) {
    return {{"wall_ns", clocks.wall},
            {"monotonic_ns", clocks.monotonic},
            {"counter", clocks.Counter()},
            {"uptime_ns", clocks.boot},
            {"read_within_ns", clocks.apart}};
}

Json TimeZoneJson(std::int64_t wall) {
    const std::time_t now = static_cast<std::time_t>(wall / kSecond);
    tm local{};
    localtime_r(&now, &local);
    const char* const variable = std::getenv("TZ");
    std::error_code error;
    const std::string file = std::filesystem::read_symlink("/etc/localtime", error).string();
    return {{"name", ToUtf8(local.tm_zone)},
            {"utc_offset_seconds", local.tm_gmtoff},
            {"tz_variable", TextOrNull(variable != nullptr ? variable : "")},
            {"localtime_file", TextOrNull(file)}};
}

Json SystemJson() {
    utsname names{};
    uname(&names);
    return {{"kernel", ToUtf8(names.release)},
            {"machine", ToUtf8(names.machine)},
            {"host", ToUtf8(names.nodename)}};
}

Json FilesJson(const std::vector<CollectedFile>& files, bool inArchive) {
    Json list = Json::array();
    for (const CollectedFile& file : files) {
        if (file.inArchive == inArchive) {
            Json json{{"name", ToUtf8(file.name)},
                      {"bytes", file.bytes},
                      {"modified_ns", file.modifiedNanoseconds}};
            json["problem"] = TextOrNull(file.problem);
            if (file.blankedSlots > 0) {
                json["overwritten_slots"] = file.blankedSlots;
            }
            list.push_back(std::move(json));
        }
    }
    return list;
}

Json ModulesJson(pid_t process) {
    Json list = Json::array();
    for (const Module& module : ModulesOf(process)) {
        list.push_back({{"path", ToUtf8(module.path)},
                        {"address", NimaPost::Hex(module.address)},
                        {"build_id", TextOrNull(module.buildId)}});
    }
    return list;
}

} // namespace

Clocks ReadClocks() {
    constexpr int kTries = 16;
    Clocks best;
    for (int i = 0; i < kTries; ++i) {
        Clocks clocks;
        const std::int64_t before = Now(CLOCK_MONOTONIC);
        clocks.boot = Now(CLOCK_BOOTTIME);
        clocks.wall = Now(CLOCK_REALTIME);
        clocks.monotonic = Now(CLOCK_MONOTONIC);
        clocks.apart = clocks.monotonic - before;
        if (i == 0 || clocks.apart < best.apart) {
            best = clocks;
        }
    }
    return best;
}

Json Manifest::ToJson() const {
    Json segmentList = Json::object();
    Json processList = Json::array();
    std::vector<pid_t> seen;
    unsigned hidden = 0;
    for (const auto& [name, mapping] : segments) {
        Json ids = Json::array();
        hidden = std::max(hidden, mapping.hidden);
        for (const MappingProcess& process : mapping.processes) {
            ids.push_back(process.id);
            if (std::find(seen.begin(), seen.end(), process.id) == seen.end()) {
                seen.push_back(process.id);
                processList.push_back({{"process", process.id},
                                       {"name", ToUtf8(process.name)},
                                       {"modules", ModulesJson(process.id)}});
            }
        }
        segmentList[name] = {{"mapped_by", std::move(ids)}};
    }
    Json programList = Json::array();
    for (const std::string& program : programs) {
        programList.push_back(
            {{"path", ToUtf8(program)}, {"build_id", TextOrNull(NimaPost::BuildIdOf(program))}});
    }
    return {{"manifest", kVersion},
            {"tool", {{"name", "nima-ctl"}, {"version", NIMA_CTL_VERSION}}},
            {"directory", ToUtf8(directory)},
            {"boot_id", TextOrNull(FirstLine("/proc/sys/kernel/random/boot_id"))},
            {"clocks", ClocksJson(clocks)},
            {"time_zone", TimeZoneJson(clocks.wall)},
            {"system", SystemJson()},
            {"files", FilesJson(files, true)},
            {"left_out", FilesJson(files, false)},
            {"segments", std::move(segmentList)},
            {"processes", std::move(processList)},
            {"hidden_processes", hidden},
            {"programs", std::move(programList)},
            {"recording", recording.value_or(Json())}};
}

CollectedFile DescribeFile(const std::string& path, const std::string& name) {
    struct stat status {};
    CollectedFile file;
    file.name = name;
    if (lstat(path.c_str(), &status) == 0) {
        file.bytes = static_cast<std::uint64_t>(status.st_size);
        file.modifiedNanoseconds = status.st_mtim.tv_sec * kSecond + status.st_mtim.tv_nsec;
    }
    return file;
}

void FindProcesses(Manifest& manifest, const std::string& directory) {
    for (const char* name :
         {Nima::Catalogue::kSysTraceSegment.narrow, Nima::Catalogue::kRingSegment.narrow}) {
        std::string problem;
        const auto file = OpenExisting(directory + '/' + name, Access::kRead, problem);
        if (file) {
            manifest.segments[name] = ProcessesThatMap(file.Number());
        }
    }
}

} // namespace NimaCtl
