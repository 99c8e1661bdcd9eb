#pragma once

#include "tools/commands/Commands.h"
#include "tools/input/Evidence.h"
#include "tools/input/InputLimits.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// What a command reads: folders, files, archives, standard input.
struct InputOptions {
    std::vector<std::string> paths;
    std::vector<std::string> devices; ///< only these; all if empty
    InputLimits limits;
};

/// The arguments themselves, "--device" and the limits. `name` is what they are in the help text.
void AddInputOptions(CLI::App& command, InputOptions& options, const std::string& name,
                     const std::string& description);
/// The limits alone.
void AddLimits(CLI::App& command, InputLimits& limits);
/// How many threads read; as many as the machine has processors where the call does not say.
void AddThreads(CLI::App& command, unsigned& threads);

/// For people.
std::string NamesOf(const std::vector<Device>& devices);

/// Finds the devices of a call, those alone that were asked for and hold anything; one empty device if there
/// is none. `evidence` has what was found about archives and folders. False, with the reason, where there is
/// nothing to read.
bool FindDevices(const InputOptions& options, bool backups, Evidence& evidence, std::string& problem);

/// What commands that read one file each look for in folders and archives.
struct FileKind {
    std::string_view name; ///< "binary trace"
    bool (*recognise)(std::string_view front, std::uint64_t size);
};

/// Runs a command on each file that was named, and on each of its kind in folders and archives; `device` is
/// that of the file. `findings` starts with what was found about these. With JSON, several files make an
/// array. Returns the exit code.
int RunOnFiles(Context& context, const InputOptions& options, const FileKind& kind,
               const std::function<int(const InputFile& file, Device& device, Findings& findings)>& run);

/// One of the devices that a command is run on.
struct DeviceInput {
    Device& device;
    std::string where;                       ///< as people are told
    std::string source;                      ///< what was named in the call
    const std::vector<FileIdentity>& inputs; ///< that are no evidence themselves
    bool one;                                ///< whether there is no other
};

/// The same for commands that take everything of a device together; files that were named are one device.
int RunOnDevices(Context& context, const InputOptions& options, bool backups,
                 const std::function<int(const DeviceInput& input, Findings& findings)>& run);

/// Runs a command on each file that was named, as `RunOnFiles` does, and on each device in folders and
/// archives.
int RunOnInput(Context& context, const InputOptions& options,
               const std::function<int(const InputFile& file, Findings& findings)>& onFile,
               const std::function<int(const DeviceInput& input, Findings& findings)>& onDevice);

/// Whether all files of a device were named in the call: they are not a folder.
bool IsNamed(const Device& device);

} // namespace NimaPost
