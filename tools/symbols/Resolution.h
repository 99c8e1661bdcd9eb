#pragma once

#include "tools/base/Findings.h"
#include "tools/base/Output.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// A function at an address, with the place in its source. Inlined functions are in the one that follows
/// them.
struct Call {
    std::string function;
    std::string file;       ///< as the compiler was told; empty where it is not known
    std::uint64_t line = 0; ///< 0 where it is not known
    bool inlined = false;

    bool operator==(const Call& other) const = default;
};

/// What the symbols of one module say about a frame.
struct Candidate {
    std::size_t module = 0;  ///< in the resolution's modules
    std::vector<Call> calls; ///< the innermost first
};

/// What told where a module was loaded.
enum class BaseEvidence : unsigned char { kVotes, kManifest };
std::string_view EvidenceInWords(BaseEvidence evidence);

/// Symbols that were used, and where their module was in the process.
struct PlacedModule {
    std::string symbols;     ///< the file with the functions' names
    std::string lines;       ///< the file with the places in the source; empty without one
    std::string buildId;     ///< hexadecimal; empty without one
    bool confirmed = false;  ///< whether the evidence names this build
    std::uint64_t base = 0;  ///< what must be added to an address in the file
    std::uint64_t votes = 0; ///< frames whose name and offset give this base
    std::uint64_t named = 0; ///< frames within the module that have a name and an offset
    BaseEvidence evidence = BaseEvidence::kVotes;
};

/// What symbols say about a stack trace.
struct Resolution {
    std::vector<PlacedModule> modules;
    /// For each frame; more than one where the evidence does not decide, none where nothing is known.
    std::vector<std::vector<Candidate>> frames;

    std::size_t Resolved() const;
};

/// A symbol file that could not be used, and why.
struct SymbolProblem {
    enum class Kind : unsigned char {
        kDamaged,
        kOtherBuild, ///< than the one that the evidence names
        kUnread,     ///< in a form that is not read
    };
    Kind kind = Kind::kDamaged;
    std::string file;
    std::string sentence;
};

/// What a search for symbols has found, for each of several stack traces.
struct Resolutions {
    std::vector<Resolution> traces;
    std::vector<SymbolProblem> problems;
    std::size_t files = 0; ///< programs, libraries and debug files that were found
};

/// Members as doc/nima-post.md lists them.
Json ResolutionJson(const Resolution& resolution);

/// The lines below a frame, each without an indent: "f() at scan.cpp:12", and for inlined functions the
/// callers.
std::vector<std::string> FrameInWords(const Resolution& resolution, std::size_t frame);

/// What an engineer must know before trusting them: what bases rest on, what is refused and what is missing.
void StateResolution(const Resolution& resolution, std::size_t nameless, Findings& findings);
void StateFiles(const Resolutions& resolutions, Findings& findings);

/// As text, to hand them from one process to another.
std::string Packed(const Resolutions& resolutions);
std::optional<Resolutions> Unpacked(const std::string& text);

} // namespace NimaPost
