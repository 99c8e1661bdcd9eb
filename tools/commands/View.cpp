#include "tools/commands/View.h"

#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/base/WallClock.h"
#include "tools/commands/EventPrinter.h"
#include "tools/report/CrashData.h"
#include "tools/story/MergedStory.h"
#include "tools/story/Story.h"

#include <algorithm>
#include <deque>
#include <filesystem>
#include <optional>

namespace NimaPost {

namespace {

/// Hands on the last events of all, or all of them.
class LastOnes {
  public:
    using Show = std::function<void(const TimelineEvent&)>;
    LastOnes(std::optional<std::uint64_t> most, Show show) : most_(most), show_(std::move(show)) {}

    void Take(const TimelineEvent& event) {
        if (!most_) {
            show_(event);
            return;
        }
        kept_.emplace_back(event);
        if (kept_.size() > *most_) {
            kept_.pop_front();
        }
    }
    void Finish() {
        for (const KeptEvent& each : kept_) {
            show_(each.Get());
        }
    }

  private:
    std::optional<std::uint64_t> most_;
    Show show_;
    std::deque<KeptEvent> kept_;
};

Json ProcessesJson(const Axis& axis) {
    const auto time = [&](const std::optional<std::int64_t>& moment) {
        return moment && axis.HasWall() ? Json(WallTimeIso(*moment)) : Json();
    };
    Json processes = Json::array();
    for (const ProcessFacts& facts : axis.AllProcesses().All()) {
        Json threads = Json::array();
        for (const std::uint32_t thread : facts.threads) {
            threads.push_back(Hex32(thread));
        }
        processes.push_back({{"process", processes.size() + 1},
                             {"boot", facts.boot ? Json(*facts.boot) : Json()},
                             {"boot_doubt", DoubtJson(facts)},
                             {"evidence", facts.evidence},
                             {"doubts", facts.Doubts()},
                             {"first", time(facts.first)},
                             {"last", time(facts.last)},
                             {"threads", std::move(threads)}});
    }
    return processes;
}

/// What came up only while the events were printed.
Findings LateFindings(const Story& story, const Findings& known, const Selection& selection) {
    Findings late = story.AllDamage();
    std::erase_if(late.damage, [&](const Finding& finding) {
        return std::any_of(known.damage.begin(), known.damage.end(),
                           [&](const Finding& other) { return other.sentence == finding.sentence; });
    });
    late.remarks = selection.Remarks();
    return late;
}

} // namespace

bool ReadStory(Context& context, Story& story, const DeviceInput& input, const Findings& inherited) {
    std::string problem;
    if (story.Read(input.device, input.where, problem)) {
        return true;
    }
    const Findings findings = Joined(inherited, story.AllDamage());
    PrintFindings(context, findings);
    ReportUnusable(context, problem, findings);
    return false;
}

int RunView(Context& context, const DeviceInput& input, const Findings& inherited,
            const SelectionOptions& options, const SelectedEvents::Admits& admits) {
    Selection selection;
    std::string problem;
    return selection.Prepare(options, problem) ? RunView(context, input, inherited, selection, admits)
                                               : ReportUnusable(context, problem);
}

int RunView(Context& context, const DeviceInput& input, const Findings& inherited, Selection& selection,
            const SelectedEvents::Admits& admits) {
    Story story(context.names);
    std::string problem;
    if (!ReadStory(context, story, input, inherited)) {
        return kExitUnusable;
    }
    if (!selection.Settle(story.Time().AllProcesses(), LandmarksOf(story, selection.NeedsEnds()), problem)) {
        return ReportUnusable(context, problem);
    }
    const Findings findings = Joined(inherited, story.AllFindings());
    std::optional<JsonDocument> document;
    if (context.format == Format::kJson) {
        document.emplace(context.out);
        document->Member("folder", ToUtf8(input.where));
        document->Member("findings", FindingsJson(findings));
        document->Member("crashes", CrashesJson(story));
        document->Member("processes", ProcessesJson(story.Time()));
        document->BeginArray("events");
    } else {
        PrintFindings(context, findings);
    }
    std::vector<std::string> files;
    // Rows have no heading.
    const bool named = !input.one && context.format != Format::kText && context.format != Format::kJson;
    for (const FolderFile& file : story.Files()) {
        files.push_back(named ? input.where + "/" + file.name : file.name);
    }
    EventPrinter printer(context, std::move(files), story.Time().HasWall());
    printer.Begin();
    LastOnes last(selection.Last(),
                  [&](const TimelineEvent& event) { printer.Print(event, document ? &*document : nullptr); });
    MergedStory(story, selection, admits).ForEach([&](const TimelineEvent& event) { last.Take(event); });
    last.Finish();
    const Findings late = LateFindings(story, findings, selection);
    if (document) {
        document->EndArray();
        document->Member("late_findings", FindingsJson(late));
        document->End();
    } else {
        PrintFindings(context, late);
    }
    return std::max(ExitCodeOf(findings), ExitCodeOf(late));
}

} // namespace NimaPost
