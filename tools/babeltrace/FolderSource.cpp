#include "tools/babeltrace/FolderSource.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"
#include "tools/input/EvidenceParts.h"
#include "tools/input/EvidenceReader.h"
#include "tools/input/FolderListing.h"
#include "tools/story/Folder.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <utility>

namespace NimaPost {

namespace {

namespace fs = std::filesystem;

/// The last part of a path, whatever slashes follow.
std::string LastName(const std::string& path) {
    std::error_code error;
    fs::path whole = fs::absolute(path, error).lexically_normal();
    whole = whole.has_filename() ? whole : whole.parent_path();
    return whole.filename().string();
}

/// Slashes would lead to other folders where traces are written under their names.
std::string TitleOf(const std::string& input, const Device& device) {
    std::string title = ToUtf8(device.name.empty() ? LastName(input) : device.name);
    std::replace(title.begin(), title.end(), '/', '-');
    return title;
}

std::string TitleOf(const TracedDevice& device, const ClockedTrace& trace) {
    std::string title = device.title;
    title += trace.process ? " process " + std::to_string(*trace.process) : " other";
    return title + (trace.clock ? " clock " + std::to_string(*trace.clock) : "");
}

/// The seconds since 1970, or another beginning, at or before a time.
std::int64_t WholeSeconds(std::int64_t time) {
    return time - Modulo(time, kSecond);
}

void SetEnvironment(bt_trace* trace, const char* name, const std::optional<std::size_t>& number) {
    if (number) {
        Check(bt_trace_set_environment_entry_integer(trace, name, static_cast<std::int64_t>(*number)));
    }
}

void SetEnvironment(bt_trace* trace, const char* name, std::string_view text) {
    if (!text.empty()) {
        Check(bt_trace_set_environment_entry_string(trace, name, std::string(text).c_str()));
    }
}

bool HoldsAny(const std::string& folder, const std::string& name) {
    // Enough to see what begins there, without unpacking what is no device's.
    InputLimits limits;
    limits.unpackedBytes = 1 << 24;
    EvidencePart part;
    part.path = folder;
    part.files.push_back(name);
    Evidence evidence = ReadPart(part, limits);
    return std::any_of(evidence.devices.begin(), evidence.devices.end(), HoldsEvidence);
}

} // namespace

bool FolderSource::Read(const FolderParameters& parameters, std::string& problem) {
    Names names;
    if (!parameters.names.empty() && !names.Load(parameters.names, problem)) {
        return false;
    }
    for (const std::string& input : parameters.inputs) {
        if (!ReadInput(parameters, input, names, problem)) {
            return false;
        }
    }
    for (const TracedDevice& device : devices_) {
        for (const ClockedTrace& trace : device.traces.All()) {
            AddPort(device, trace);
        }
    }
    return true;
}

bool FolderSource::ReadInput(const FolderParameters& parameters, const std::string& input, const Names& names,
                             std::string& problem) {
    Evidence evidence = ReadEvidence({input}, InputLimits());
    Findings findings = std::move(evidence.findings);
    const std::size_t before = devices_.size();
    for (Device& device : evidence.devices) {
        if (!HoldsEvidence(device)) {
            continue;
        }
        const std::string where = device.name.empty() ? input : input + "/" + device.name;
        Story story(names);
        if (!story.Read(device, where, problem)) {
            findings.Damage("no-evidence", problem);
            continue;
        }
        AddDevice(parameters, where, TitleOf(input, device), story, names);
        findings.Append(where, story.AllDamage());
    }
    for (const Finding& finding : findings.damage) {
        Warn(finding.sentence);
    }
    if (devices_.size() == before) {
        problem = input + ": nothing in it that the diagnostics library leaves behind";
        return false;
    }
    return true;
}

void FolderSource::AddDevice(const FolderParameters& parameters, const std::string& where,
                             const std::string& title, const Story& story, const Names& names) {
    const auto& collected = story.Time().Collected();
    const std::int64_t utcOffset =
        story.Time().HasWall() ? parameters.utcOffset.value_or(collected ? collected->utcOffset : 0) : 0;
    ClockedTraces traces(story, names, utcOffset);
    EventShape::Clock clock;
    clock.base = WholeSeconds(traces.Base());
    clock.absolute = story.Time().HasWall() || parameters.forceAbsolute;
    clock.name = where;
    if (!clock.absolute) {
        Warn(where +
             ": nothing in it is dated, so that it merges with no other folder or trace; "
             "force-absolute=yes makes it merge");
    }
    devices_.push_back(TracedDevice{title, std::move(traces), EventShape(Self(), clock)});
}

void FolderSource::AddPort(const TracedDevice& device, const ClockedTrace& trace) {
    TracePort& port = ports_.emplace_back();
    port.device = &device;
    port.trace = &trace;
    port.made.reset(Made(bt_trace_create(device.shape.TraceClass())));
    const std::string title = TitleOf(device, trace);
    Check(bt_trace_set_name(port.made.get(), title.c_str()));
    Check(bt_trace_set_environment_entry_string(port.made.get(), "device", device.title.c_str()));
    SetEnvironment(port.made.get(), "process", trace.process);
    SetEnvironment(port.made.get(), "boot", trace.boot);
    SetEnvironment(port.made.get(), "boot_doubt", trace.bootDoubt);
    SetEnvironment(port.made.get(), "doubts", trace.doubts);
    // "clock" is a word of its own where the trace is written as CTF.
    SetEnvironment(port.made.get(), "wall_clock", trace.clock);
    for (const std::size_t thread : trace.threads) {
        SharedStream stream(Made(bt_stream_create(device.shape.StreamClass(), port.made.get())));
        Check(bt_stream_set_name(stream.get(), device.traces.ThreadTitles()[thread].c_str()));
        port.streams.push_back(TracePort::Stream{thread, std::move(stream)});
    }
    const std::string name = std::to_string(ports_.size()) + ": " + title;
    Check(bt_self_component_source_add_output_port(self_, name.c_str(), &port, nullptr));
}

void FolderSource::Warn(const std::string& sentence) const {
    const bt_component* const component = bt_self_component_as_component(Self());
    if (bt_component_get_logging_level(component) <= BT_LOGGING_LEVEL_WARNING) {
        std::fprintf(stderr, "source.nima.folder: %s\n", Printable(sentence).c_str());
    }
}

double SupportFor(std::string_view type, const std::string& input) {
    // Others, which find their own kind of folder by its name, are surer.
    constexpr double kWeight = 0.5;
    if (type == "file") {
        const fs::path path(input);
        const std::string folder = path.has_parent_path() ? path.parent_path().string() : ".";
        return HoldsAny(folder, path.filename().string()) ? kWeight : 0;
    }
    if (type != "directory") {
        return 0;
    }
    const FolderListing listing(input);
    const bool any = std::any_of(listing.files.begin(), listing.files.end(),
                                 [&](const std::string& name) { return HoldsAny(input, name); });
    return any ? kWeight : 0;
}

} // namespace NimaPost
