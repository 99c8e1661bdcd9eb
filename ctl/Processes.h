#pragma once

#include "tools/base/Json.h"

#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

namespace NimaCtl {

using NimaPost::Json;

struct MappingProcess {
    pid_t id = 0;
    std::string name;
};

struct MappingProcesses {
    std::vector<MappingProcess> processes;
    unsigned hidden = 0; ///< processes whose mappings this user may not see
};

/// The processes that have the open file mapped, this one left out.
MappingProcesses ProcessesThatMap(int file);

/// Whether a thread of the process is stopped or waits for a device, so that it may take any time.
bool IsHeldUp(pid_t process);

/// [{"process": 4711, "name": "device_host"}, ...]
Json ProcessesJson(const MappingProcesses& mapping);
/// "4711 device_host, 4712 engine", or "none".
std::string ProcessesText(const MappingProcesses& mapping);

} // namespace NimaCtl
