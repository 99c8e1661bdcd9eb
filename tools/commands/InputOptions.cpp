#include "tools/commands/InputOptions.h"

#include "tools/base/Text.h"
#include "tools/input/EvidenceReader.h"
#include "tools/story/Folder.h"

#include <algorithm>
#include <thread>
#include <utility>

namespace NimaPost {

namespace {

/// What each part of a call had to show, one after the other.
class Parts {
  public:
    Parts(Context& context, bool several) : context_(context), several_(several) {
        if (several_ && context_.format == Format::kJson) {
            context_.out.Write("[\n");
        }
    }

    /// `name` is the heading.
    void Add(const std::string& name, const std::function<int()>& run) {
        if (several_ && context_.format == Format::kText) {
            context_.out.Line((codes_.empty() ? "== " : "\n== ") + Printable(name));
        } else if (!codes_.empty() && context_.format == Format::kJson) {
            context_.out.Write(",\n");
        }
        codes_.push_back(run());
    }

    int End() {
        if (several_ && context_.format == Format::kJson) {
            context_.out.Write("]\n");
        }
        const auto [least, most] = std::minmax_element(codes_.begin(), codes_.end());
        return *most == kExitUnusable && *least != kExitUnusable ? kExitDamaged : *most;
    }

  private:
    Context& context_;
    bool several_;
    std::vector<int> codes_;
};

std::string AllPaths(const InputOptions& options) {
    std::string all;
    for (const std::string& path : options.paths) {
        all += (all.empty() ? "" : ", ") + path;
    }
    return all;
}

int ReportNothing(Context& context, const std::string& problem, const Findings& findings) {
    if (!context.json) {
        PrintFindings(context, findings);
    }
    return ReportUnusable(context, problem, findings);
}

/// Leaves only the devices that were asked for. False, with the reason, if one of them is not there.
bool KeepAsked(const InputOptions& options, std::vector<Device>& devices, std::string& problem) {
    const auto named = [](const std::string& name) {
        return [&name](const Device& device) { return device.name == name; };
    };
    for (const std::string& name : options.devices) {
        if (std::none_of(devices.begin(), devices.end(), named(name))) {
            problem =
                AllPaths(options) + ": no device \"" + name + "\" in it; there are: " + NamesOf(devices);
            return false;
        }
    }
    std::erase_if(devices, [&](const Device& device) {
        return !options.devices.empty() && std::find(options.devices.begin(), options.devices.end(),
                                                     device.name) == options.devices.end();
    });
    return true;
}

/// False, with the reason, where all that was named cannot be opened.
bool OpensAny(const std::vector<Device>& devices, std::string& problem) {
    bool any = devices.empty();
    for (const Device& device : devices) {
        for (const EvidenceFile& file : device.files) {
            any = any || !file.named || file.problem.empty();
            problem = problem.empty() ? file.problem : problem;
        }
    }
    return any;
}

/// Leaves one device, if there is no other with anything in it.
void LeaveOutEmpty(std::vector<Device>& devices, Findings& findings) {
    if (devices.empty()) {
        devices.emplace_back();
    }
    if (devices.size() == 1) {
        return;
    }
    const auto last = std::stable_partition(devices.begin(), devices.end(), [](Device& device) {
        return IsNamed(device) || HoldsEvidence(device);
    });
    const auto empty = last == devices.begin() ? last + 1 : last;
    std::for_each(empty, devices.end(), [&](const Device& device) {
        for (const EvidenceFile& file : device.files) {
            if (!file.problem.empty()) {
                findings.Damage("cannot-open", file.problem);
            }
        }
    });
    devices.erase(empty, devices.end());
}

/// What is wrong with the call is reported.
bool FindDevices(Context& context, const InputOptions& options, bool backups, Evidence& evidence) {
    std::string problem;
    if (FindDevices(options, backups, evidence, problem)) {
        return true;
    }
    Findings others = evidence.findings;
    std::erase_if(others.damage, [&](const Finding& finding) { return finding.sentence == problem; });
    if (!context.json) {
        PrintFindings(context, others);
    }
    ReportUnusable(context, problem, evidence.findings);
    return false;
}

std::string WhereOf(const InputOptions& options, const Device& device) {
    return device.name.empty() ? AllPaths(options) : device.name;
}

/// What was found before goes to the first file.
int RunOnFile(Context& context, EvidenceFile& file, Findings& findings,
              const std::function<int(const InputFile& file, Findings& findings)>& run) {
    std::string problem;
    const auto input = file.Open(problem);
    const int code = input ? run(*input, findings) : ReportUnopened(context, problem);
    findings = Findings();
    return code;
}

} // namespace

void AddInputOptions(CLI::App& command, InputOptions& options, const std::string& name,
                     const std::string& description) {
    AddOption(command, name, options.paths, description + "; a folder, an archive, or - for standard input")
        .Required();
    AddOption(command, "--device", options.devices, "Of several devices only this one (again for more)")
        .TypeName("NAME");
    AddLimits(command, options.limits);
}

void AddLimits(CLI::App& command, InputLimits& limits) {
    const auto limit = [&](const char* option, auto& value, const char* text, const char* type) {
        return AddOption(command, option, value, text).TypeName(type).Group("Limits");
    };
    limit("--max-unpacked", limits.unpackedBytes, "Bytes to unpack in all", "SIZE").Size();
    limit("--max-ratio", limits.ratio,
          "How many times larger than its compressed form a file above 256 MiB may be", "N")
        .Positive();
    limit("--max-members", limits.members, "Files in archives and folders", "N").Positive();
    limit("--max-depth", limits.depth, "Archives in archives", "N").Positive();
    limit("--max-line", limits.lineBytes, "Bytes of a line of a text log", "SIZE").Size();
}

void AddThreads(CLI::App& command, unsigned& threads) {
    constexpr unsigned kMostThreads = 256;
    threads = std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads);
    AddOption(command, "--threads", threads, "How many folders to read at once")
        .Between(1U, kMostThreads)
        .TypeName("N");
}

std::string NamesOf(const std::vector<Device>& devices) {
    std::string names;
    for (const Device& device : devices) {
        names += (names.empty() ? "" : ", ") + (device.name.empty() ? std::string("\"\"") : device.name);
    }
    return names;
}

bool FindDevices(const InputOptions& options, bool backups, Evidence& evidence, std::string& problem) {
    evidence = ReadEvidence(options.paths, options.limits, backups);
    if (!KeepAsked(options, evidence.devices, problem)) {
        return false;
    }
    if (!OpensAny(evidence.devices, problem)) {
        evidence.findings.Damage("cannot-open", problem);
        return false;
    }
    LeaveOutEmpty(evidence.devices, evidence.findings);
    return true;
}

int RunOnFiles(Context& context, const InputOptions& options, const FileKind& kind,
               const std::function<int(const InputFile& file, Device& device, Findings& findings)>& run) {
    Evidence evidence = ReadEvidence(options.paths, options.limits);
    Findings findings = std::move(evidence.findings);
    std::string problem;
    if (!KeepAsked(options, evidence.devices, problem)) {
        return ReportNothing(context, problem, findings);
    }
    std::vector<std::pair<Device*, EvidenceFile*>> files;
    for (Device& device : evidence.devices) {
        for (EvidenceFile& file : device.files) {
            std::uint64_t size = 0;
            if (file.named || kind.recognise(file.Front(size), size)) {
                files.emplace_back(&device, &file);
            } else if (!file.problem.empty()) {
                findings.Damage("cannot-open", file.problem);
            }
        }
    }
    if (files.empty()) {
        return ReportNothing(context, AllPaths(options) + ": no " + std::string(kind.name) + " in it",
                             findings);
    }
    Parts parts(context, files.size() > 1);
    for (const auto& [device, file] : files) {
        parts.Add(file->path, [&, device = device, file = file] {
            return RunOnFile(context, *file, findings, [&](const InputFile& input, Findings& found) {
                return run(input, *device, found);
            });
        });
    }
    return parts.End();
}

bool IsNamed(const Device& device) {
    return !device.files.empty() && std::all_of(device.files.begin(), device.files.end(),
                                                [](const EvidenceFile& file) { return file.named; });
}

int RunOnDevices(Context& context, const InputOptions& options, bool backups,
                 const std::function<int(const DeviceInput& input, Findings& findings)>& run) {
    Evidence evidence;
    if (!FindDevices(context, options, backups, evidence)) {
        return kExitUnusable;
    }
    Findings findings = std::move(evidence.findings);
    Parts parts(context, evidence.devices.size() > 1);
    for (Device& device : evidence.devices) {
        const std::string where = WhereOf(options, device);
        parts.Add(where, [&] {
            const int code = run(
                {device, where, AllPaths(options), evidence.inputs, evidence.devices.size() == 1}, findings);
            findings = Findings();
            return code;
        });
    }
    return parts.End();
}

int RunOnInput(Context& context, const InputOptions& options,
               const std::function<int(const InputFile& file, Findings& findings)>& onFile,
               const std::function<int(const DeviceInput& input, Findings& findings)>& onDevice) {
    Evidence evidence;
    if (!FindDevices(context, options, false, evidence)) {
        return kExitUnusable;
    }
    Findings findings = std::move(evidence.findings);
    std::size_t count = 0;
    for (const Device& device : evidence.devices) {
        count += IsNamed(device) ? device.files.size() : 1;
    }
    Parts parts(context, count > 1);
    for (Device& device : evidence.devices) {
        if (!IsNamed(device)) {
            const std::string where = WhereOf(options, device);
            parts.Add(where, [&] {
                const int code =
                    onDevice({device, where, AllPaths(options), evidence.inputs, count == 1}, findings);
                findings = Findings();
                return code;
            });
            continue;
        }
        for (EvidenceFile& file : device.files) {
            parts.Add(file.path, [&] { return RunOnFile(context, file, findings, onFile); });
        }
    }
    return parts.End();
}

} // namespace NimaPost
