#pragma once

#include "tools/base/CommandLine.h"
#include "tools/base/Findings.h"
#include "tools/base/FindingsJson.h"
#include "tools/base/InputFile.h"
#include "tools/base/Output.h"
#include "tools/commands/Paint.h"
#include "tools/names/Names.h"

#include <cstdint>
#include <functional>
#include <string>

namespace NimaPost {

enum class Format : unsigned char { kText, kJson, kJsonl, kCsv, kShort };

/// What every command gets: the common options, and where its result goes.
struct Context {
    Format format = Format::kText;
    bool json = false;           ///< in either of its forms
    std::string colour = "auto"; ///< or "always" or "never"
    Paint paint;
    bool headed = false; ///< the one heading of a table has been printed
    bool paged = false;  ///< long output is shown page by page on a terminal
    std::string namesFile;
    Names names;
    Output out{stdout};
};

using Run = std::function<int(Context&)>;

/// A command adds itself to the program and sets `run` if it is the one that was called.
using CommandAdder = void(CLI::App& app, Context& context, Run& run);

/// Adds what the program says of itself, and everything of the table.
void SetUpProgram(CLI::App& app, Context& context, Run& run);

/// What a command prints. Only a list has every format.
enum class Prints : unsigned char {
    kThing,
    kList,
    kAsItComes, ///< until it is interrupted
    kFiles      ///< what it did; --format is that of the files, and the command's own
};

/// A subcommand with the options that all commands share.
CLI::App* AddCommand(CLI::App& app, Context& context, const std::string& name, const std::string& description,
                     Prints prints = Prints::kThing);

/// Prints an object on one line, with the version of its schema.
void PrintObject(Context& context, const Json& members);

/// "--count N", for a command that runs until it is interrupted: how many of `things` it waits for.
void AddCountOption(CLI::App& command, std::uint64_t& count, const std::string& things);

/// Prints damage and remarks on standard error, as lines of text "damaged: ..." and "note: ...", so that
/// standard output holds only what was asked for. On a terminal, too, they come after what was printed
/// before.
void PrintFindings(Context& context, const Findings& findings);

/// Prints why there is nothing to show, on standard error and, if JSON was asked for, as a JSON object on
/// standard output. Returns the exit code for that.
int ReportUnusable(Context& context, const std::string& problem, const Findings& findings = {});
/// The same for an input that cannot be opened, whose problem names it.
int ReportUnopened(Context& context, const std::string& problem);
/// The same for an input that was opened: that it could not be read comes before what else was found.
int ReportUnusable(Context& context, const InputFile& file, Findings findings);

inline int ExitCodeOf(const Findings& findings) {
    return findings.damage.empty() ? kExitFine : kExitDamaged;
}

} // namespace NimaPost
