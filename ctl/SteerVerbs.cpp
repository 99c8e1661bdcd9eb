#include "catalogue/SysTrace.h"
#include "ctl/FilterText.h"
#include "ctl/LevelWords.h"
#include "ctl/Verbs.h"
#include "ctl/block/Journal.h"
#include "ctl/block/Steering.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"

#include <memory>

namespace NimaCtl {

namespace {

struct SteerVerbsOptions {
    std::vector<std::string> words;
    bool off = false;
    std::chrono::nanoseconds wait{kUsualWait};
};

/// Turns the words of a call into a change; returns false with a reason if they are not understood.
using ChangeMaker = bool(const Names& names, const SteerVerbsOptions& options, FilterChange& change,
                         std::string& problem);

bool MakeLevel(const Names& names, const SteerVerbsOptions& options, FilterChange& change,
               std::string& problem) {
    if (options.words.size() < 2) {
        problem = "a component and at least one level are needed";
        return false;
    }
    for (std::size_t i = 1; i < options.words.size(); ++i) {
        if (!AddLevel(names, options.words.front(), options.words[i], change, options.off, problem)) {
            return false;
        }
    }
    return true;
}

bool MakeOnly(const Names& names, const SteerVerbsOptions& options, FilterChange& change,
              std::string& problem) {
    change.CloseAll();
    return OpenPairs(names, options.words, change, problem);
}

bool MakeReset(const Names& /*names*/, const SteerVerbsOptions& /*options*/, FilterChange& change,
               std::string& /*problem*/) {
    constexpr std::uint32_t kLevelsOfAFreshBlock = 2;
    change.CloseAll();
    for (std::uint32_t component = 0; component < Nima::Catalogue::kComponents; ++component) {
        for (std::uint32_t level = 0; level < kLevelsOfAFreshBlock; ++level) {
            change.Open(component, level);
        }
    }
    return true;
}

void AddFindings(const SteeringResult& result, Findings& findings) {
    if (result.held) {
        findings.Remark("filter-held",
                        "The change is in the live filter and in the saved one, which lets more "
                        "through. " +
                            SetAsideText());
    }
    if (result.repeats > 0) {
        findings.Remark("change-repeated", "Dumps undid the change " +
                                               NimaPost::Counted(result.repeats, "time") +
                                               "; it was repeated each time.");
    }
    if (!result.done) {
        findings.Damage("change-lost", "The change was lost again just now; call this again.");
    }
}

/// The saved filter only where it matters.
void Print(Context& context, const std::string& label, const Filters& filters) {
    if (filters.SetAside()) {
        PrintFilters(context.out, label, filters, context.names);
    } else {
        PrintFilter(context.out, label, filters.live, context.names);
    }
}

int RunChange(Context& context, const SteerVerbsOptions& options, ChangeMaker* make) {
    FilterChange change;
    std::string problem;
    if (!make(context.names, options, change, problem)) {
        return Refuse(context, problem);
    }
    const auto block = TraceBlock::Open(context.directory, Access::kWrite, problem);
    const auto turn = block ? Turn::Take(*block, Turn::kPatience, problem) : std::nullopt;
    if (!turn) {
        return Refuse(context, problem);
    }
    if (!StrikeFromNotes(context.directory, *block, change.Touched())) {
        context.findings.Remark(
            "note-stays", "A note of a recording cannot be changed; what it lists may be closed later.");
    }
    const SteeringResult result = Steer(*block, change, options.wait);
    if (block->File().Lost()) {
        return Refuse(context, block->File().LostText());
    }
    AddFindings(result, context.findings);
    if (!context.json) {
        Print(context, "before  ", result.before);
        Print(context, "after   ", result.after);
    }
    return Finish(context, {{"before", FiltersJson(result.before, context.names)},
                            {"after", FiltersJson(result.after, context.names)},
                            {"held", result.held},
                            {"repeats", result.repeats}});
}

int RunClear(Context& context) {
    std::string problem;
    const auto block = TraceBlock::Open(context.directory, Access::kWrite, problem);
    const auto turn = block ? Turn::Take(*block, Turn::kPatience, problem) : std::nullopt;
    if (!turn) {
        return Refuse(context, problem);
    }
    const std::uint32_t used = UsedEntries(block->CopyHeader());
    ClearTrace(*block);
    if (block->File().Lost()) {
        return Refuse(context, block->File().LostText());
    }
    if (!context.json) {
        context.out.Line("cleared; " + NimaPost::Counted(used, "entry") + (used == 1 ? " was" : " were") +
                         " in use");
    }
    return Finish(context, {{"cleared_entries", used}});
}

/// A verb that changes the filter, without its own words.
CLI::App* AddChange(CLI::App& app, Context& context, Run& run,
                    const std::shared_ptr<SteerVerbsOptions>& options, ChangeMaker* make,
                    const std::string& name, const std::string& description) {
    CLI::App* verb = AddVerb(app, context, name, description);
    AddWaitOption(*verb, options->wait, "How long to wait for the end of a dump, 10 by default");
    OnCall(*verb, [&run, options, make] {
        run = [options, make](Context& c) { return RunChange(c, *options, make); };
    });
    return verb;
}

} // namespace

void AddLevelVerb(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<SteerVerbsOptions>();
    CLI::App* verb = AddChange(app, context, run, options, MakeLevel, "level",
                               "Opens levels for a component: COMPONENT LEVEL...");
    AddOption(*verb, "WORDS", options->words, "A component, by number or name, or \"all\"; then levels")
        .TypeName("")
        .Required();
    AddFlag(*verb, "--off", options->off, "Close these levels instead");
}

void AddOnlyVerb(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<SteerVerbsOptions>();
    CLI::App* verb = AddChange(app, context, run, options, MakeOnly, "only",
                               "Closes everything but these: COMPONENT:LEVEL...");
    AddOption(*verb, "PAIRS", options->words, "What stays open, such as 5:2 or Engine:all")
        .TypeName("COMPONENT:LEVEL")
        .Required();
}

void AddResetVerb(CLI::App& app, Context& context, Run& run) {
    AddChange(app, context, run, std::make_shared<SteerVerbsOptions>(), MakeReset, "reset",
              "The filter of a fresh block: levels 0 and 1 of every component");
}

void AddClearVerb(CLI::App& app, Context& context, Run& run) {
    OnCall(*AddVerb(app, context, "clear", "Empties the binary trace"), [&run] { run = RunClear; });
}

} // namespace NimaCtl
