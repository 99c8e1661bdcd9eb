#pragma once

#include "tools/symbols/FrameLine.h"
#include "tools/symbols/Known.h"
#include "tools/symbols/Resolution.h"
#include "tools/symbols/SymbolFiles.h"

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

namespace NimaPost {

/// The frames of one process, and what else is known about it.
struct TraceFrames {
    std::vector<FrameLine> frames;
    std::optional<std::uint32_t> process; ///< the system's identifier
};

/// Finds out where modules were in a process, and what its frames are in them.
class Resolver {
  public:
    /// Everything must outlive it. `wanted` holds the functions of all traces.
    Resolver(SymbolFiles& files, const KnownModules& known, const std::unordered_set<std::string>& wanted,
             const FileInUse& inUse)
        : files_(files), known_(known), wanted_(wanted), inUse_(inUse) {}

    Resolution Resolve(const TraceFrames& trace);

  private:
    /// A module at a place.
    struct Claim {
        SymbolModule* module = nullptr;
        PlacedModule placed;

        bool Holds(std::uint64_t address) const;
    };

    static std::uint64_t CodeAddress(const Claim& claim, const FrameLine& frame);
    std::vector<std::uint64_t> BasesOf(SymbolModule& module, const FrameLine& frame);
    void Vote(SymbolModule& module, const std::vector<FrameLine>& frames);
    void TakeFromManifest(const TraceFrames& trace);
    void Count(Claim& claim, const std::vector<FrameLine>& frames);
    bool Contradicts(const Claim& claim, const FrameLine& frame);
    std::vector<Claim*> Covering(const FrameLine& frame, bool call);
    bool IsSignalReturn(const FrameLine& frame, bool afterHandler);
    void ResolveFrame(const FrameLine& frame, bool call, std::vector<Candidate>& candidates);
    void NumberModules(Resolution& resolution) const;
    std::optional<bool> BeginsFunction(const FrameLine& frame, std::string& function);

    SymbolFiles& files_;
    const KnownModules& known_;
    const std::unordered_set<std::string>& wanted_;
    const FileInUse& inUse_;
    std::vector<Claim> claims_;
};

} // namespace NimaPost
