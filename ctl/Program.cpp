#include "ctl/Program.h"

#include "ctl/Verbs.h"
#include "ctl/block/Journal.h"

#include <algorithm>
#include <exception>
#include <iostream>

#include <CLI/CLI.hpp>
#include <sys/stat.h>

namespace NimaCtl {

namespace {

int RunVerb(const Run& run, Context& context) {
    std::string problem;
    struct stat status {};
    int code = kExitUnusable;
    if (stat(context.directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        code = Refuse(context, context.directory + ": is no directory");
    } else if (!context.namesFile.empty() && !context.names.Load(context.namesFile, problem)) {
        code = Refuse(context, problem);
    } else {
        try {
            Findings findings;
            CloseAbandoned(context.directory, context.names, findings);
            PrintFindings(context, findings);
            code = run(context);
        } catch (const std::exception& error) {
            code = Refuse(context, error.what());
        }
    }
    if (!context.out.Flush()) {
        std::cerr << "nima-ctl: cannot write the output\n";
        return kExitUnusable;
    }
    return code;
}

} // namespace

int RunProgram(int argc, const char* const* argv) {
    if (std::any_of(argv, argv + argc, [](const char* word) { return *word == '\0'; })) {
        std::cerr << "nima-ctl: an argument is empty\n";
        return kExitUnusable;
    }
    CLI::App app;
    Context context;
    Run run;
    SetUpProgram(app, context, run);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kExitFine : kExitUnusable;
    }
    return RunVerb(run, context);
}

} // namespace NimaCtl
