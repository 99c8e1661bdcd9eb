#include "tools/symbols/Resolver.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <tuple>

namespace NimaPost {

namespace {

constexpr std::uint64_t kPage = 4096;
/// Bases of one module that have as many votes as each other.
constexpr std::size_t kMostBases = 4;

std::uint64_t WithoutMark(const ElfImage& image, std::uint64_t address) {
    return image.IsArm() ? address & ~std::uint64_t{1} : address;
}

/// A walk names a recursion's frame again and again: each address is one piece of evidence.
std::vector<const FrameLine*> DistinctNamed(const std::vector<FrameLine>& frames) {
    std::set<std::uint64_t> seen;
    std::vector<const FrameLine*> named;
    for (const FrameLine& frame : frames) {
        if (frame.offset && seen.insert(frame.address).second) {
            named.push_back(&frame);
        }
    }
    return named;
}

} // namespace

bool Resolver::Claim::Holds(std::uint64_t address) const {
    const ElfImage& image = module->Names();
    return address >= placed.base && address - placed.base >= image.CodeBegin() &&
           address - placed.base < image.CodeEnd();
}

/// The places at which the module would have to be for the frame to be what it says.
std::vector<std::uint64_t> Resolver::BasesOf(SymbolModule& module, const FrameLine& frame) {
    const ElfImage& image = module.Names();
    std::vector<std::uint64_t> bases;
    const auto consider = [&](std::uint64_t below) {
        const std::uint64_t address = WithoutMark(image, frame.address);
        const std::uint64_t base = address - below;
        const bool fits = below <= address && base % kPage == 0 && (!image.IsFixed() || base == 0) &&
                          (!image.Is32Bit() || address <= UINT32_MAX) &&
                          std::find(bases.begin(), bases.end(), base) == bases.end();
        if (fits) {
            bases.push_back(base);
        }
    };
    for (const std::uint64_t value : module.ValuesOf(frame.function, wanted_)) {
        consider(*frame.offset + value);
        if (*frame.offset == 0) {
            consider(WithoutMark(image, value)); // the handler writes no offset below 0
        }
    }
    return bases;
}

bool Resolver::Contradicts(const Claim& claim, const FrameLine& frame) {
    if (!frame.offset ||
        (!claim.module->Names().HasAllNames() && claim.module->ValuesOf(frame.function, wanted_).empty())) {
        return false;
    }
    const auto bases = BasesOf(*claim.module, frame);
    return std::find(bases.begin(), bases.end(), claim.placed.base) == bases.end();
}

void Resolver::Count(Claim& claim, const std::vector<FrameLine>& frames) {
    for (const FrameLine* const frame : DistinctNamed(frames)) {
        const bool unknown =
            !claim.module->Names().HasAllNames() && claim.module->ValuesOf(frame->function, wanted_).empty();
        if (claim.Holds(WithoutMark(claim.module->Names(), frame->address)) && !unknown) {
            ++claim.placed.named;
            claim.placed.votes += Contradicts(claim, *frame) ? 0 : 1;
        }
    }
}

void Resolver::Vote(SymbolModule& module, const std::vector<FrameLine>& frames) {
    std::map<std::uint64_t, std::uint64_t> votes;
    std::uint64_t most = 0;
    for (const FrameLine* const frame : DistinctNamed(frames)) {
        for (const std::uint64_t base : BasesOf(module, *frame)) {
            most = std::max(most, ++votes[base]);
        }
    }
    std::size_t taken = 0;
    for (const auto& [base, count] : votes) {
        if (count != most || taken == kMostBases) {
            continue;
        }
        Claim claim{&module, {}};
        claim.placed.base = base;
        Count(claim, frames);
        // A build of its own name agrees everywhere; what agrees by chance does so here and there.
        const bool wins = claim.placed.votes * 2 > claim.placed.named;
        const bool agrees = claim.placed.votes == claim.placed.named;
        if (wins && (agrees || module.IsConfirmed() || known_.IsEmpty())) {
            claims_.push_back(claim);
            ++taken;
        }
    }
}

/// A manifest's process is the trace's if its identifier is, or a place that was found by votes; and if no
/// such place differs.
void Resolver::TakeFromManifest(const TraceFrames& trace) {
    std::map<std::uint32_t, bool> fits;
    std::map<std::string, SymbolModule*> confirmed;
    for (const auto& module : files_.Modules()) {
        if (module->IsConfirmed()) {
            confirmed[module->BuildId()] = module.get();
        }
    }
    const auto baseOf = [](const LoadedModule& loaded, SymbolModule& module) {
        return loaded.address - module.Names().FirstAddress();
    };
    std::set<std::uint32_t> differs;
    for (const LoadedModule& loaded : known_.loaded) {
        bool& fit = fits.try_emplace(loaded.process, trace.process == loaded.process).first->second;
        for (const Claim& claim : claims_) {
            if (claim.module->IsConfirmed() && claim.module->BuildId() == loaded.build.buildId) {
                const bool same = claim.placed.base == baseOf(loaded, *claim.module);
                fit = fit || same;
                if (!same) {
                    differs.insert(loaded.process);
                }
            }
        }
    }
    for (const LoadedModule& loaded : known_.loaded) {
        const auto module = confirmed.find(loaded.build.buildId);
        const bool placed = module != confirmed.end() &&
                            std::any_of(claims_.begin(), claims_.end(),
                                        [&](const Claim& claim) { return claim.module == module->second; });
        if (module == confirmed.end() || placed || !fits[loaded.process] ||
            differs.contains(loaded.process)) {
            continue;
        }
        Claim claim{module->second, {}};
        claim.placed.base = baseOf(loaded, *module->second);
        claim.placed.evidence = BaseEvidence::kManifest;
        Count(claim, trace.frames);
        claims_.push_back(claim);
    }
}

/// The claims that hold an address and are equally good; of the others there are none.
std::vector<Resolver::Claim*> Resolver::Covering(const FrameLine& frame, bool call) {
    std::vector<Claim*> best;
    const auto rank = [](const Claim& claim) {
        return std::tuple(claim.module->IsConfirmed(), claim.placed.votes);
    };
    for (Claim& claim : claims_) {
        const std::uint64_t address = CodeAddress(claim, frame) - (call ? 1 : 0);
        if (!claim.Holds(address) || Contradicts(claim, frame)) {
            continue;
        }
        if (!best.empty() && rank(claim) > rank(*best.front())) {
            best.clear();
        }
        if (best.empty() || rank(claim) == rank(*best.front())) {
            best.push_back(&claim);
        }
    }
    return best;
}

std::uint64_t Resolver::CodeAddress(const Claim& claim, const FrameLine& frame) {
    return WithoutMark(claim.module->Names(), frame.address);
}

/// Whether an address is known to begin a function, or known not to; empty where nothing is known.
std::optional<bool> Resolver::BeginsFunction(const FrameLine& frame, std::string& function) {
    for (const Claim* const claim : Covering(frame, false)) {
        const std::uint64_t address = CodeAddress(*claim, frame) - claim->placed.base;
        if (const ImageFunction* const found = claim->module->Names().FunctionAt(address)) {
            function = PlainName(std::string(found->name));
            return found->begin == address;
        }
    }
    return std::nullopt;
}

/// Whether the frame is the return from a signal, which no call has led to: by its name, or since it follows
/// the handler and nothing speaks against it.
bool Resolver::IsSignalReturn(const FrameLine& frame, bool afterHandler) {
    std::string function;
    const std::optional<bool> begins = BeginsFunction(frame, function);
    return ReturnsFromSignal(frame.function) || (begins == true && ReturnsFromSignal(function)) ||
           (afterHandler && begins.value_or(true));
}

void Resolver::ResolveFrame(const FrameLine& frame, bool call, std::vector<Candidate>& candidates) {
    for (Claim* const claim : Covering(frame, call)) {
        SymbolModule& module = *claim->module;
        inUse_(module.Lines() != nullptr ? module.Lines()->Path() : module.Names().Path());
        const std::uint64_t address = CodeAddress(*claim, frame) - (call ? 1 : 0) - claim->placed.base;
        Candidate candidate{0, module.CallsAt(address)};
        const bool isNew = !candidate.calls.empty() &&
                           std::none_of(candidates.begin(), candidates.end(),
                                        [&](const auto& other) { return other.calls == candidate.calls; });
        if (isNew) {
            candidate.module = static_cast<std::size_t>(claim - claims_.data());
            candidates.push_back(std::move(candidate));
        }
    }
}

/// Keeps the modules that candidates name, in the order of the frames.
void Resolver::NumberModules(Resolution& resolution) const {
    std::map<std::size_t, std::size_t> numbers;
    for (auto& candidates : resolution.frames) {
        for (Candidate& candidate : candidates) {
            const auto [number, isNew] = numbers.try_emplace(candidate.module, numbers.size());
            if (isNew) {
                const Claim& claim = claims_[candidate.module];
                PlacedModule& placed = resolution.modules.emplace_back(claim.placed);
                placed.symbols = claim.module->Names().Path();
                placed.lines = claim.module->Lines() != nullptr ? claim.module->Lines()->Path() : "";
                placed.buildId = claim.module->BuildId();
                placed.confirmed = claim.module->IsConfirmed();
            }
            candidate.module = number->second;
        }
    }
}

Resolution Resolver::Resolve(const TraceFrames& trace) {
    claims_.clear();
    for (const auto& module : files_.Modules()) {
        inUse_(module->Names().Path());
        Vote(*module, trace.frames);
    }
    TakeFromManifest(trace);

    Resolution resolution;
    bool afterReturn = false;
    bool afterHandler = false;
    for (const FrameLine& frame : trace.frames) {
        const bool isReturn =
            !afterReturn && IsSignalReturn(frame, afterHandler && !frame.IsIn(kSignalHandler));
        std::vector<Candidate>& candidates = resolution.frames.emplace_back();
        ResolveFrame(frame, !isReturn && !afterReturn, candidates);
        afterReturn = isReturn;
        afterHandler =
            frame.IsIn(kSignalHandler) ||
            (!candidates.empty() && IsNamed(candidates.front().calls.back().function, kSignalHandler));
    }
    NumberModules(resolution);
    return resolution;
}

} // namespace NimaPost
