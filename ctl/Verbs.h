#pragma once

#include "tools/base/CommandLine.h"
#include "tools/base/Findings.h"
#include "tools/base/Output.h"
#include "tools/names/Names.h"

#include <chrono>
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

/// What every verb gets: the common options, and where its result goes.
struct Context {
    std::string directory = ".";
    bool json = false;
    std::string namesFile;
    Names names;
    Output out{stdout};
};

using Run = std::function<int(Context&)>;

/// A verb adds itself to the program and sets `run` if it is the one that was called.
using VerbAdder = void(CLI::App& app, Context& context, Run& run);

/// Adds what the program says of itself, and everything of the table.
void SetUpProgram(CLI::App& app, Context& context, Run& run);

/// A subcommand with the options that all verbs share.
CLI::App* AddVerb(CLI::App& app, Context& context, const std::string& name, const std::string& description);

inline std::chrono::nanoseconds SecondsOf(double seconds) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds));
}

/// "--wait SECONDS".
void AddWaitOption(CLI::App& verb, double& seconds, const std::string& what);

/// Whether a verb may write to this path: never where a segment is, of this directory or of another, since
/// that would take it away from the processes that map it. Otherwise `problem` says why not.
bool IsNoSegment(const std::string& path, std::string& problem);

/// Prints why nothing was done, on standard error and, if JSON was asked for, as an object on standard
/// output. Returns the exit code for that.
int Refuse(Context& context, const std::string& problem);

/// Prints damage and remarks on standard error, as lines "damaged: ..." and "note: ...".
void PrintFindings(Context& context, const Findings& findings);

/// A remark about slots that were overwritten while they were copied, if there are any.
void AddBlanked(std::uint32_t slots, Findings& findings);

/// Writes a JSON object and the end of its line.
void PrintJson(Context& context, const Json& json);

} // namespace NimaCtl
