#include "ctl/Program.h"

#include "ctl/Verbs.h"
#include "ctl/block/Journal.h"
#include "tools/base/StandardStreams.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <exception>
#include <iostream>
#include <string>

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
            CloseAbandoned(context.directory, context.names, context.findings);
            Tell(context);
            code = run(context);
        } catch (const std::exception& error) {
            code = Refuse(context, error.what());
        }
    }
    if (!context.out.Flush()) {
        std::cerr << "nima-ctl: cannot write the output\n";
        return context.printsOnly ? kExitUnusable : std::max<int>(code, kExitDamaged);
    }
    return code;
}

/// What is wrong with the words of a call; empty for what the parser says better.
std::string Mistake(const CLI::App& app) {
    const auto verbs = app.get_subcommands();
    const auto remaining = verbs.empty() ? app.remaining() : verbs.front()->remaining();
    if (remaining.empty()) {
        return verbs.empty() ? "a verb is needed; --help lists them" : "";
    }
    const std::string& word = remaining.front();
    const bool isOption = word.starts_with('-');
    if (verbs.empty()) {
        return std::string(isOption ? "no option \"" : "no verb \"") + word + "\"; --help lists them";
    }
    const std::string name = verbs.front()->get_name();
    return isOption ? "no option \"" + word + "\" of " + name +
                          "; an argument that begins with \"-\" comes after " + "\"--\""
                    : "\"" + word + "\" is one argument too many for " + name;
}

} // namespace

int RunProgram(int argc, const char* const* argv) {
    NimaPost::TakeClosedStreams();
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
        if (error.get_exit_code() == 0) {
            app.exit(error);
            if (std::cout.flush()) {
                return kExitFine;
            }
            std::cerr << "nima-ctl: cannot write the output\n";
            return kExitUnusable;
        }
        const std::string mistake = Mistake(app);
        std::cerr << "nima-ctl: " << NimaPost::Printable(mistake.empty() ? error.what() : mistake) << '\n';
        return kExitUnusable;
    }
    return RunVerb(run, context);
}

} // namespace NimaCtl
