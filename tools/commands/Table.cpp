#include "tools/commands/Commands.h"

namespace NimaPost {

// Each command is a file that defines one of these, and a row below.
CommandAdder AddCrashCommand;
CommandAdder AddDiffCommand;
CommandAdder AddEventCommand;
CommandAdder AddListenCommand;
CommandAdder AddLogCommand;
CommandAdder AddReportCommand;
CommandAdder AddRingsCommand;
CommandAdder AddShowCommand;
CommandAdder AddSummaryCommand;
CommandAdder AddSysTraceCommand;
CommandAdder AddTimelineCommand;
CommandAdder AddWatchCommand;

namespace {

/// In the order of the help text.
constexpr CommandAdder* kCommands[]{
    AddSummaryCommand, AddShowCommand,  AddLogCommand,   AddSysTraceCommand,
    AddRingsCommand,   AddCrashCommand, AddEventCommand, AddTimelineCommand,
    AddReportCommand,  AddDiffCommand,  AddWatchCommand, AddListenCommand,
};

} // namespace

void SetUpProgram(CLI::App& app, Context& context, Run& run) {
    app.name("nima-post");
    app.description("Reads what the diagnostics library left behind.");
    app.require_subcommand(1);
    app.set_version_flag("--version", "nima-post " NIMA_POST_VERSION);
    app.footer(
        "nima-post FOLDER is short for nima-post summary FOLDER.\n"
        "Exit status: 0 fine, 1 damaged input that could be read in part, 2 nothing usable.");
    for (CommandAdder* add : kCommands) {
        add(app, context, run);
    }
}

} // namespace NimaPost
