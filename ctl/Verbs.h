#pragma once

#include "tools/base/CommandLine.h"
#include "tools/base/Findings.h"
#include "tools/base/Output.h"
#include "tools/names/Names.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace NimaCtl {

using NimaPost::AddFlag;
using NimaPost::AddOption;
using NimaPost::Findings;
using NimaPost::Json;
using NimaPost::kExitDamaged;
using NimaPost::kExitFine;
using NimaPost::kExitUnusable;
using NimaPost::Names;
using NimaPost::OnCall;
using NimaPost::Output;

/// What every verb gets: the common options, where its result goes, and what has been found so far.
struct Context {
    std::string directory = ".";
    bool json = false;
    std::string namesFile;
    Names names;
    Output out{stdout};
    bool printsOnly = false; ///< what is printed is all that the call does
    Findings findings;
    std::size_t damageTold = 0;
    std::size_t remarksTold = 0;
};

using Run = std::function<int(Context&)>;

/// A verb adds itself to the program and sets `run` if it is the one that was called.
using VerbAdder = void(CLI::App& app, Context& context, Run& run);

/// Adds what the program says of itself, and everything of the table.
void SetUpProgram(CLI::App& app, Context& context, Run& run);

/// A subcommand with the options that all verbs share.
CLI::App* AddVerb(CLI::App& app, Context& context, const std::string& name, const std::string& description);

/// An option or an argument whose value names a file to write; "-" is standard output, as with nima-post.
NimaPost::Argument AddOutputOption(CLI::App& verb, const std::string& names, std::string& path,
                                   const std::string& what);

/// An option whose value is a length of time: "30s", "500ms", "1.5" (seconds), at most a day.
NimaPost::Argument AddTimeOption(CLI::App& verb, const std::string& name, std::chrono::nanoseconds& time,
                                 std::chrono::nanoseconds least, const std::string& what);
/// "--wait TIME", which may be nothing.
constexpr std::chrono::seconds kUsualWait{10};
void AddWaitOption(CLI::App& verb, std::chrono::nanoseconds& time, const std::string& what);

/// Whether a verb may write to this path: never where a segment is, of this directory or of another, since
/// that would take it away from the processes that map it. Otherwise `problem` says why not.
bool IsNoSegment(const std::string& path, std::string& problem);

/// Adds a remark about slots that were overwritten while they were copied, if there are any.
void AddBlanked(std::uint32_t slots, Findings& findings);

/// Prints a line about a file that has been written, but not into that file: it may be standard output.
void TellOfFile(Context& context, const std::string& path, const std::string& text);

/// Prints what has been found so far, for example before something that takes long: damage and remarks on
/// standard error, as lines "damaged: ..." and "note: ...". With JSON they come in its object.
void Tell(Context& context);

/// The object of a call: `schema`, the members, and the findings.
Json ObjectOf(const Context& context, const Json& members);

/// Ends a call that did something: prints the object of the call if JSON was asked for, otherwise the
/// findings. Returns the exit code, which depends on whether there is damage.
int Finish(Context& context, const Json& members);
int ExitCodeOf(const Context& context);

/// Ends a call that did nothing, and says why. Returns the exit code for that.
int Refuse(Context& context, const std::string& problem);

} // namespace NimaCtl
