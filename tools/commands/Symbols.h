#pragma once

#include "tools/base/CommandLine.h"
#include "tools/crash/StackTrace.h"
#include "tools/symbols/Known.h"
#include "tools/symbols/Resolution.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace NimaPost {

/// Where symbols are looked for.
struct SymbolOptions {
    std::vector<std::string> places;

    /// Those of the call, then those of NIMA_SYMBOLS.
    std::vector<std::string> AllPlaces() const;
};

/// "--symbols DIR", again for more.
void AddSymbols(CLI::App& command, SymbolOptions& options);

/// A stack-trace file and its name, which tells its process.
struct NamedStack {
    const StackTrace* stack = nullptr;
    std::string name;
};

/// What symbols say about several stack traces.
struct ResolvedStacks {
    std::vector<std::string> names;
    std::vector<Resolution> resolutions;
    std::vector<Findings> statements; ///< what each rests on
    Findings files;                   ///< about the symbol files themselves

    /// Everything that the reader must know.
    void AddTo(Findings& findings) const;
};

/// Resolves the frames of stack traces, with what the evidence says about the device's builds, which is asked
/// for only then. Empty where no symbols are given.
std::optional<ResolvedStacks> ResolveStacks(const SymbolOptions& options,
                                            const std::function<KnownModules()>& known,
                                            const std::vector<NamedStack>& stacks);

} // namespace NimaPost
