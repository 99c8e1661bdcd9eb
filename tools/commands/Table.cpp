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
CommandAdder AddSysTraceCommand;
CommandAdder AddTimelineCommand;
CommandAdder AddWatchCommand;

namespace {

/// In the order of the help text.
constexpr CommandAdder* kCommands[]{
    AddSysTraceCommand, AddRingsCommand,  AddLogCommand,  AddCrashCommand, AddEventCommand,
    AddTimelineCommand, AddReportCommand, AddDiffCommand, AddWatchCommand, AddListenCommand,
};

} // namespace

void AddAllCommands(CLI::App& app, Context& context, Run& run) {
    for (CommandAdder* add : kCommands) {
        add(app, context, run);
    }
}

} // namespace NimaPost
