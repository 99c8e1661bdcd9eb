#include "tools/commands/Symbols.h"

#include "tools/base/InputFile.h"
#include "tools/crash/Notification.h"
#include "tools/manifest/Manifest.h"
#include "tools/symbols/Search.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace NimaPost {

namespace fs = std::filesystem;

namespace {

constexpr const char* kVariable = "NIMA_SYMBOLS";
constexpr std::string_view kElfMark = "\177ELF";

void AddManifest(const Manifest& manifest, KnownModules& known) {
    for (const Manifest::Program& program : manifest.programs) {
        known.programs.push_back({program.path, program.buildId});
    }
    for (const Manifest::Process& process : manifest.processes) {
        for (const Manifest::Module& module : process.modules) {
            known.loaded.push_back({{module.path, module.buildId}, module.address, process.id});
        }
    }
}

/// What lies beside the evidence: a manifest, and the device's programs.
void LookAround(const std::string& folder, SymbolRequest& request) {
    std::error_code error;
    for (fs::directory_iterator entries(folder, error); !error && entries != fs::directory_iterator();
         entries.increment(error)) {
        std::string problem;
        std::error_code unknown;
        const auto file = entries->is_regular_file(unknown)
                              ? InputFile::Open(entries->path().string(), problem)
                              : std::nullopt;
        const std::string front = file ? file->ReadAll(kFrontBytes) : std::string();
        if (front.starts_with(kElfMark)) {
            request.bundled.push_back(file->Path());
        } else if (LooksLikeManifest(front)) {
            Findings ignored;
            if (const auto manifest = ReadManifest(file->ReadAll(kMostTextBytes), ignored)) {
                AddManifest(*manifest, request.known);
            }
        }
    }
    std::sort(request.bundled.begin(), request.bundled.end());
}

TraceFrames FramesOf(const NamedStack& named) {
    TraceFrames trace;
    for (const std::string& line : named.stack->frames) {
        trace.frames.push_back(ParseFrameLine(line).value_or(FrameLine()));
    }
    if (const auto name = ParseStackTraceName(fs::path(named.name).filename().string())) {
        trace.process = name->process;
    }
    return trace;
}

std::size_t Nameless(const TraceFrames& trace, const Resolution& resolution) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < trace.frames.size(); ++i) {
        count += resolution.frames[i].empty() && trace.frames[i].function.empty() ? 1 : 0;
    }
    return count;
}

} // namespace

std::vector<std::string> SymbolOptions::AllPlaces() const {
    std::vector<std::string> all = places;
    const char* const variable = std::getenv(kVariable); // NOLINT(concurrency-mt-unsafe): nothing sets it
    std::string_view rest = variable != nullptr ? variable : "";
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find(':'), rest.size());
        if (end != 0) {
            all.emplace_back(rest.substr(0, end));
        }
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return all;
}

void AddSymbols(CLI::App& command, SymbolOptions& options) {
    command
        .add_option("--symbols", options.places,
                    "Resolve addresses with the programs, libraries and debug files in DIR (again for more)")
        ->type_name("DIR")
        ->allow_extra_args(false)
        ->check(CLI::ExistingPath);
}

void ResolvedStacks::AddTo(Findings& findings) const {
    for (std::size_t i = 0; i < statements.size(); ++i) {
        findings.Append(names[i], statements[i]);
    }
    findings.damage.insert(findings.damage.end(), files.damage.begin(), files.damage.end());
    findings.remarks.insert(findings.remarks.end(), files.remarks.begin(), files.remarks.end());
}

std::optional<ResolvedStacks> ResolveStacks(const SymbolOptions& options, const std::string& folder,
                                            const std::vector<NamedStack>& stacks) {
    SymbolRequest request;
    request.places = options.AllPlaces();
    if (request.places.empty() || stacks.empty()) {
        return std::nullopt;
    }
    for (const NamedStack& stack : stacks) {
        request.traces.push_back(FramesOf(stack));
    }
    LookAround(folder, request);
    Resolutions found = SearchSymbols(request);
    ResolvedStacks resolved;
    StateFiles(found, resolved.files);
    for (std::size_t i = 0; i < stacks.size(); ++i) {
        resolved.names.push_back(stacks[i].name);
        Findings& statement = resolved.statements.emplace_back();
        if (found.files != 0) {
            StateResolution(found.traces[i], Nameless(request.traces[i], found.traces[i]), statement);
        }
    }
    resolved.resolutions = std::move(found.traces);
    return resolved;
}

} // namespace NimaPost
