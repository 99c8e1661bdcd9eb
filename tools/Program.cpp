#include "tools/Program.h"

#include "tools/base/Progress.h"
#include "tools/base/StandardStreams.h"
#include "tools/base/Text.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Nearest.h"
#include "tools/commands/Terminal.h"
#include "tools/input/StandardInput.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>
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
    if (WantsColour(context.colour)) {
        context.paint.TurnOn();
    }
    Pager pager;
    context.out.BeforeFirst([&] {
        if (context.paged) {
            pager.Start();
        }
    });
    Progress::Allow();
    int code = kExitUnusable;
    try {
        code = run(context);
    } catch (const std::exception& error) {
        code = ReportUnusable(context, error.what());
    }
    if (!context.out.Flush()) {
        std::cerr << "nima-post: cannot write the output\n";
        code = kExitUnusable;
    }
    Progress::Clear();
    pager.Finish();
    return code;
}

std::vector<std::string> CommandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands({})) {
        names.push_back(command->get_name());
    }
    return names;
}

std::vector<std::string> OptionNames(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

/// What is wrong with the words of a call, and what was probably meant; empty for what the parser says
/// better.
std::string Mistake(const CLI::App& app) {
    const auto commands = app.get_subcommands();
    const CLI::App& called = commands.empty() ? app : *commands.front();
    const auto remaining = called.remaining();
    if (remaining.empty()) {
        return commands.empty() ? "a command or a folder is needed; --help lists the commands" : "";
    }
    const std::string word = remaining.front().substr(0, remaining.front().find('='));
    const bool isOption = word.starts_with('-');
    const bool isCommand = commands.empty() && !isOption;
    if (!isCommand && !isOption) {
        return "\"" + word + "\" is one argument too many for " + called.get_name();
    }
    const std::string nearest = Nearest(word, isCommand ? CommandNames(app) : OptionNames(called));
    return (isCommand ? "no command or file \"" : "no option \"") + word + "\"" +
           (nearest.empty() ? "; --help lists them" : "; did you mean " + nearest + "?");
}

/// A folder, an archive or standard input in a command's place asks for its summary.
std::vector<std::string> WordsOf(const CLI::App& app, int argc, const char* const* argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    const auto names = CommandNames(app);
    const std::string first = words.empty() ? std::string() : words.front();
    std::error_code error;
    if (first == kStandardInput ||
        (!first.starts_with('-') && std::find(names.begin(), names.end(), first) == names.end() &&
         std::filesystem::exists(first, error))) {
        words.insert(words.begin(), "summary");
    }
    // As the parser takes them.
    std::reverse(words.begin(), words.end());
    return words;
}

} // namespace

int RunProgram(int argc, const char* const* argv) {
    TakeClosedStreams();
    AllowManyFiles();
    CLI::App app;
    Context context;
    Run run;
    SetUpProgram(app, context, run);
    try {
        app.parse(WordsOf(app, argc, argv));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            app.exit(error);
            if (std::cout.flush()) {
                return kExitFine;
            }
            std::cerr << "nima-post: cannot write the output\n";
            return kExitUnusable;
        }
        const std::string mistake = Mistake(app);
        std::cerr << "nima-post: " << Printable(mistake.empty() ? error.what() : mistake) << '\n';
        return kExitUnusable;
    }
    return RunCommand(run, context);
}

} // namespace NimaPost
