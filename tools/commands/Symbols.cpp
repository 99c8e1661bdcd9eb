#include "tools/commands/Symbols.h"

#include "tools/crash/Notification.h"
#include "tools/symbols/Search.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace NimaPost {

namespace fs = std::filesystem;

namespace {

constexpr const char* kVariable = "NIMA_SYMBOLS";

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
        count += resolution.frames[i].empty() && !trace.frames[i].offset ? 1 : 0;
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
    AddOption(command, "--symbols", options.places,
              "Resolve addresses with the programs, libraries and debug files in DIR (again for more)")
        .TypeName("DIR")
        .OnePerUse()
        .Existing();
}

void ResolvedStacks::AddTo(Findings& findings) const {
    for (std::size_t i = 0; i < statements.size(); ++i) {
        findings.Append(names[i], statements[i]);
    }
    findings.damage.insert(findings.damage.end(), files.damage.begin(), files.damage.end());
    findings.remarks.insert(findings.remarks.end(), files.remarks.begin(), files.remarks.end());
}

std::optional<ResolvedStacks> ResolveStacks(const SymbolOptions& options,
                                            const std::function<KnownModules()>& known,
                                            const std::vector<NamedStack>& stacks) {
    SymbolRequest request;
    request.places = options.AllPlaces();
    if (request.places.empty() || stacks.empty()) {
        return std::nullopt;
    }
    for (const NamedStack& stack : stacks) {
        request.traces.push_back(FramesOf(stack));
    }
    request.known = known();
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
