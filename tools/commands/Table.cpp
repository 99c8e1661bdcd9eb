#include "tools/commands/Commands.h"

namespace NimaPost {

// Each command is a file that defines one of these, and a row below.
CommandAdder AddCrashCommand;
CommandAdder AddDiffCommand;
CommandAdder AddEventCommand;
CommandAdder AddFleetCommand;
CommandAdder AddIndexCommand;
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
    AddSummaryCommand, AddShowCommand,  AddLogCommand,      AddSysTraceCommand, AddRingsCommand,
    AddCrashCommand,   AddEventCommand, AddTimelineCommand, AddReportCommand,   AddDiffCommand,
    AddIndexCommand,   AddFleetCommand, AddWatchCommand,    AddListenCommand,
};

} // namespace

void SetUpProgram(CLI::App& app, Context& context, Run& run) {
    DescribeProgram(app, "nima-post", "Reads what the diagnostics library left behind.", NIMA_POST_VERSION,
                    "nima-post FOLDER is short for nima-post summary FOLDER.\n"
                    "Exit status: 0 fine, 1 damaged input that could be read in part, 2 nothing usable.");
    for (CommandAdder* add : kCommands) {
        add(app, context, run);
    }
}

} // namespace NimaPost
