#include "tools/Program.h"

#include "tools/base/Text.h"
#include "tools/commands/Commands.h"

#include <exception>
#include <iostream>

#include <sys/resource.h>

namespace NimaPost {

namespace {

/// Text logs stay open until their lines have been handed over, and a folder may hold thousands of them.
void AllowManyFiles() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

int RunCommand(const Run& run, Context& context) {
    std::string problem;
    if (!context.namesFile.empty() && !context.names.Load(context.namesFile, problem)) {
        return ReportUnusable(context, problem);
    }
    int code = kExitUnusable;
    try {
        code = run(context);
    } catch (const std::exception& error) {
        code = ReportUnusable(context, error.what());
    }
    if (!context.out.Flush()) {
        std::cerr << "nima-post: cannot write the output\n";
        return kExitUnusable;
    }
    return code;
}

} // namespace

int RunProgram(int argc, const char* const* argv) {
    AllowManyFiles();
    CLI::App app;
    Context context;
    Run run;
    SetUpProgram(app, context, run);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (app.get_subcommands().empty() && !app.remaining().empty()) {
            std::cerr << "nima-post: no command \"" << Printable(app.remaining().front())
                      << "\"\nRun with --help for more information.\n";
            return kExitUnusable;
        }
        return app.exit(error) == 0 ? kExitFine : kExitUnusable;
    }
    return RunCommand(run, context);
}

} // namespace NimaPost
