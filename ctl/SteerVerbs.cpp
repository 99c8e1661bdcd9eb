#include "catalogue/SysTrace.h"
#include "ctl/FilterText.h"
#include "ctl/Steering.h"
#include "ctl/Verbs.h"
#include "tools/base/Text.h"

#include <memory>

namespace NimaCtl {

namespace {

struct Options {
    std::vector<std::string> words;
    bool off = false;
    double wait = 10;
};

/// Turns the words of a call into a change; returns false with a reason if they are not understood.
using ChangeMaker = bool(const Names& names, const Options& options, FilterChange& change,
                         std::string& problem);

std::string NoSuch(const std::string& kind, const std::string& text, std::uint32_t count) {
    return "no " + kind + " \"" + text + "\": a number from 0 to " + std::to_string(count - 1) +
           ", \"all\", or a name of the dictionary";
}

/// The numbers that a word means: one, or with "all" every one.
using Range = std::pair<std::uint32_t, std::uint32_t>;

bool FindComponents(const Names& names, const std::string& text, Range& found, std::string& problem) {
    const auto component = names.FindComponent(text);
    found = component ? Range(*component, *component + 1) : Range(0, Nima::Catalogue::kComponents);
    if (!component && text != "all") {
        problem = NoSuch("component", text, Nima::Catalogue::kComponents);
        return false;
    }
    return true;
}

bool FindLevels(const Names& names, const std::string& text, Range& found, std::string& problem) {
    const auto level = names.FindLevel(text);
    found = level ? Range(*level, *level + 1) : Range(0, Nima::Catalogue::kTraceLevels);
    if (!level && text != "all") {
        problem = NoSuch("level", text, Nima::Catalogue::kTraceLevels);
        return false;
    }
    return true;
}

void Add(FilterChange& change, const Range& components, const Range& levels, bool off) {
    for (std::uint32_t component = components.first; component < components.second; ++component) {
        for (std::uint32_t level = levels.first; level < levels.second; ++level) {
            off ? change.Close(component, level) : change.Open(component, level);
        }
    }
}

bool MakeLevel(const Names& names, const Options& options, FilterChange& change, std::string& problem) {
    Range components;
    if (options.words.size() < 2) {
        problem = "a component and at least one level are needed";
        return false;
    }
    if (!FindComponents(names, options.words.front(), components, problem)) {
        return false;
    }
    for (std::size_t i = 1; i < options.words.size(); ++i) {
        Range levels;
        if (!FindLevels(names, options.words[i], levels, problem)) {
            return false;
        }
        Add(change, components, levels, options.off);
    }
    return true;
}

bool MakeOnly(const Names& names, const Options& options, FilterChange& change, std::string& problem) {
    change.CloseAll();
    for (const std::string& word : options.words) {
        // A name of the dictionary may contain a colon.
        const std::size_t colon = word.rfind(':');
        Range components;
        Range levels;
        if (colon == std::string::npos) {
            problem = "\"" + word + "\" is no COMPONENT:LEVEL";
            return false;
        }
        if (!FindComponents(names, word.substr(0, colon), components, problem) ||
            !FindLevels(names, word.substr(colon + 1), levels, problem)) {
            return false;
        }
        Add(change, components, levels, false);
    }
    return true;
}

bool MakeReset(const Names& /*names*/, const Options& /*options*/, FilterChange& change,
               std::string& /*problem*/) {
    constexpr std::uint32_t kLevelsOfAFreshBlock = 2;
    change.CloseAll();
    Add(change, {0, Nima::Catalogue::kComponents}, {0, kLevelsOfAFreshBlock}, false);
    return true;
}

void AddRemarks(const SteeringResult& result, Findings& findings) {
    if (result.held) {
        findings.Remark("filter-held",
                        "A dump still holds the filter, or one that was killed left it so. The change is in "
                        "the live filter and in the saved one, which the dump brings back.");
    }
    if (result.repeats > 0) {
        findings.Remark("change-repeated", "Dumps undid the change " +
                                               NimaPost::Counted(result.repeats, "time") +
                                               "; it was repeated each time.");
    }
}

int RunChange(Context& context, const Options& options, ChangeMaker* make) {
    FilterChange change;
    std::string problem;
    if (!make(context.names, options, change, problem)) {
        return Refuse(context, problem);
    }
    const auto block = TraceBlock::Open(context.directory, Access::kWrite, problem);
    if (!block || !TakeTurn(*block, problem)) {
        return Refuse(context, problem);
    }
    const SteeringResult result = Steer(*block, change, SecondsOf(options.wait));
    Findings findings;
    AddRemarks(result, findings);
    const bool done = change.IsIn(result.after);
    if (!done) {
        findings.Damage("change-lost", "The change was lost again just now; call this again.");
    }
    if (context.json) {
        PrintJson(context, {{"before", FilterJson(result.before, context.names)},
                            {"after", FilterJson(result.after, context.names)},
                            {"held", result.held},
                            {"repeats", result.repeats}});
    } else {
        context.out.Line("before  " + FilterText(result.before, context.names));
        context.out.Line("after   " + FilterText(result.after, context.names));
    }
    PrintFindings(context, findings);
    return done ? kExitFine : kExitDamaged;
}

int RunClear(Context& context) {
    std::string problem;
    const auto block = TraceBlock::Open(context.directory, Access::kWrite, problem);
    if (!block || !TakeTurn(*block, problem)) {
        return Refuse(context, problem);
    }
    const std::uint32_t used = UsedEntries(block->CopyHeader());
    ClearTrace(*block);
    if (context.json) {
        PrintJson(context, {{"cleared_entries", used}});
    } else {
        context.out.Line("cleared; " + std::to_string(used) + " entries were in use");
    }
    return kExitFine;
}

/// A verb that changes the filter, without its own words.
CLI::App* AddChange(CLI::App& app, Context& context, Run& run, const std::shared_ptr<Options>& options,
                    ChangeMaker* make, const std::string& name, const std::string& description) {
    CLI::App* verb = AddVerb(app, context, name, description);
    AddWaitOption(*verb, options->wait, "How long to wait for the end of a dump, 10 by default");
    verb->callback([&run, options, make] {
        run = [options, make](Context& c) { return RunChange(c, *options, make); };
    });
    return verb;
}

} // namespace

void AddLevelVerb(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* verb = AddChange(app, context, run, options, MakeLevel, "level",
                               "Opens levels for a component: COMPONENT LEVEL...");
    verb->add_option("WORDS", options->words, "A component, by number or name, or \"all\"; then levels")
        ->type_name("")
        ->required();
    verb->add_flag("--off", options->off, "Close these levels instead");
}

void AddOnlyVerb(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* verb = AddChange(app, context, run, options, MakeOnly, "only",
                               "Closes everything but these: COMPONENT:LEVEL...");
    verb->add_option("PAIRS", options->words, "What stays open, such as 5:2 or Engine:all")
        ->type_name("COMPONENT:LEVEL")
        ->required();
}

void AddResetVerb(CLI::App& app, Context& context, Run& run) {
    AddChange(app, context, run, std::make_shared<Options>(), MakeReset, "reset",
              "The filter of a fresh block: levels 0 and 1 of every component");
}

void AddClearVerb(CLI::App& app, Context& context, Run& run) {
    AddVerb(app, context, "clear", "Empties the binary trace")->callback([&run] { run = RunClear; });
}

} // namespace NimaCtl
