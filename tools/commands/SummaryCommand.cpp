#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/commands/Commands.h"
#include "tools/commands/CrashCause.h"
#include "tools/commands/EventPrinter.h"
#include "tools/commands/InputOptions.h"
#include "tools/commands/SummaryFacts.h"
#include "tools/commands/SummaryText.h"
#include "tools/commands/View.h"
#include "tools/report/CrashData.h"

#include <memory>
#include <string>
#include <utility>

namespace NimaPost {

namespace {

template <class Value>
Json TextJson(const Value& value) {
    return value.empty() ? Json() : Json(ToUtf8(value));
}

class SummaryJson {
  public:
    explicit SummaryJson(const SummaryFacts& facts) : facts_(facts) {}

    Json InJson() const {
        Json kinds = Json::array();
        for (const SummaryFacts::Kind& kind : facts_.Kinds()) {
            kinds.push_back(
                {{"kind", kind.kind}, {"files", kind.files}, {"bytes", kind.bytes}, {"events", kind.events}});
        }
        Json processes = Json::array();
        for (const ProcessFacts& facts : facts_.story.Time().AllProcesses().All()) {
            const Statistics::Ends& ends = facts_.statistics.ends[processes.size()];
            processes.push_back({{"process", processes.size() + 1},
                                 {"boot", facts.boot ? Json(*facts.boot) : Json()},
                                 {"boot_doubt", DoubtJson(facts)},
                                 {"evidence", facts.evidence},
                                 {"doubts", facts.Doubts()},
                                 {"first", TimeJson(facts.first)},
                                 {"first_certainty", CertaintyJson(facts.first, ends.first)},
                                 {"last", TimeJson(facts.last)},
                                 {"last_certainty", CertaintyJson(facts.last, ends.last)},
                                 {"threads", facts.threads.size()}});
        }
        Json gaps = Json::array();
        for (const Statistics::Gap& gap : facts_.statistics.gaps) {
            gaps.push_back({{"from", TimeJson(gap.from)},
                            {"until", TimeJson(gap.until)},
                            {"length_ns", gap.length},
                            {"boot", gap.boot > 0 ? Json(gap.boot) : Json()}});
        }
        return {{"folder", ToUtf8(facts_.input.where)},
                {"first", TimeJson(facts_.statistics.first)},
                {"last", TimeJson(facts_.statistics.last)},
                {"kinds", std::move(kinds)},
                {"processes", std::move(processes)},
                {"crashes", CrashesWithCauses()},
                {"counts", CountsJson()},
                {"gaps", std::move(gaps)},
                {"next", facts_.NextCommands()},
                {"findings", FindingsJson(facts_.AllFindings())}};
    }

  private:
    Json TimeJson(const std::optional<std::int64_t>& time) const {
        return !time              ? Json()
               : facts_.HasWall() ? Json(WallTimeIso(*time))
                                  : Json(MomentInWords(facts_.story.Time(), *time));
    }

    static Json CertaintyJson(const std::optional<std::int64_t>& time, const Statistics::End& end) {
        return time ? Json(MarkOf(end.certainty).code) : Json();
    }

    Json CrashesWithCauses() const {
        Json crashes = CrashesJson(facts_.story);
        for (std::size_t i = 0; i < crashes.size(); ++i) {
            const CrashCause cause(facts_.story.Crashes()[i]);
            const auto& kept = facts_.statistics.firstErrors[i];
            crashes[i]["cause"] = {
                {"message", TextJson(cause.message)},     {"file", TextJson(cause.file)},
                {"line", TextJson(cause.line)},           {"code", TextJson(cause.code)},
                {"exception", TextJson(cause.exception)}, {"top_frame", TextJson(cause.frame)}};
            crashes[i]["first_error"] =
                kept ? EventJson(kept->Get(), facts_.HasWall(), facts_.story.Files()[kept->Get().file].name)
                     : Json();
        }
        return crashes;
    }

    Json CountsJson() const {
        Json counts = Json::array();
        for (const auto& [key, count] : facts_.Names()) {
            TimelineEvent event;
            event.kind = key.first;
            Json levels = Json::object();
            for (const auto& [level, number] : count.levels) {
                levels[ToUtf8(level)] = number;
            }
            counts.push_back({{"kind", KindName(event)},
                              {"name", TextJson(key.second)},
                              {"count", count.all},
                              {"per_minute", facts_.PerMinute(count.all)},
                              {"levels", std::move(levels)}});
        }
        return counts;
    }

    const SummaryFacts& facts_;
};

int SummariseDevice(Context& context, const DeviceInput& input, Findings& inherited) {
    Story story(context.names);
    if (!ReadStory(context, story, input, inherited)) {
        return kExitUnusable;
    }
    const SummaryFacts facts{input, inherited, story, StatisticsOf(story)};
    if (context.json) {
        PrintObject(context, SummaryJson(facts).InJson());
    } else {
        PrintSummary(context, facts);
    }
    return ExitCodeOf(facts.AllFindings());
}

} // namespace

void AddSummaryCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<InputOptions>();
    CLI::App* command = AddCommand(
        app, context, "summary", "What happened, on one screen; also what a folder without a command gives");
    AddInputOptions(*command, *options, "FOLDER", "The folder that came back from the device");
    OnCall(*command, [&run, options] {
        run = [options](Context& c) {
            return RunOnDevices(c, *options, false, [&](const DeviceInput& input, Findings& findings) {
                return SummariseDevice(c, input, findings);
            });
        };
    });
}

} // namespace NimaPost
