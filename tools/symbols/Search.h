#pragma once

#include "tools/symbols/Resolver.h"

#include <string>
#include <vector>

namespace NimaPost {

/// What is asked of symbols.
struct SymbolRequest {
    std::vector<std::string> places; ///< folders, looked through to their ends, or files
    std::vector<TraceFrames> traces;
    KnownModules known;
};

/// Resolves the frames. The readers of symbols trust their files, so a copy of this process does it: a
/// damaged file that ends it is left out, and the others are tried once more.
Resolutions SearchSymbols(const SymbolRequest& request);

} // namespace NimaPost
