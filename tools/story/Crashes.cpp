#include "tools/story/Crashes.h"

#include "tools/base/CounterClock.h"
#include "tools/crash/Notification.h"
#include "tools/rings/RingSource.h"
#include "tools/story/FileTimes.h"
#include "tools/story/ReportMatch.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace NimaPost {

namespace {

class Finder {
  public:
    Finder(const std::vector<FolderFile>& files, const SourceSet& sources, const LastEvents& lastEvents,
           Axis& axis)
        : files_(files),
          sources_(sources),
          lastEvents_(lastEvents),
          axis_(axis),
          order_(axis.AllProcesses()) {}

    std::vector<Crash> Run() {
        TakeLogs();
        fileTimes_ = axis_.HasWall() ? KnownFileTimes() : FileTimes();
        deaths_ = Deaths();
        JoinReports();
        for (Crash& crash : crashes_) {
            FindProcess(crash);
        }
        DoubtRecords();
        PlaceDeaths();
        return std::move(crashes_);
    }

  private:
    void TakeLogs() {
        const CrashSource* const source = sources_.Find<CrashSource>();
        if (source == nullptr) {
            return;
        }
        for (const auto& [file, placed] : source->All()) {
            Crash crash;
            crash.title = placed.log.Title();
            crash.log = &placed;
            crash.files = {file};
            crash.time = placed.time;
            crash.certainty = placed.certainty;
            crash.after = placed.after;
            crash.thread = placed.log.rings.Writer();
            crashes_.push_back(std::move(crash));
        }
    }

    /// The stack-trace files, those of one death together: by the system's process id and their numbers.
    std::vector<Crash> Deaths() const {
        std::vector<Crash> deaths;
        const StackTraceSource* const source = sources_.Find<StackTraceSource>();
        if (source == nullptr) {
            return deaths;
        }
        std::vector<std::pair<std::optional<StackTraceName>, const StackTraceSource::Held*>> named;
        for (const StackTraceSource::Held& held : source->All()) {
            named.emplace_back(ParseStackTraceName(files_[held.file].plainName), &held);
        }
        std::stable_sort(named.begin(), named.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        for (const auto& [name, held] : named) {
            const bool isOneProcess = name && !deaths.empty() && deaths.back().processId == name->process;
            if (!isOneProcess || !Continues(deaths.back(), held->content)) {
                deaths.emplace_back().title = held->content.Title();
            }
            Crash& death = deaths.back();
            death.processId = name ? std::optional(name->process) : std::nullopt;
            death.stacks.push_back(held);
            death.files.push_back(held->file);
        }
        return deaths;
    }

    /// The handler ends a process by an abort, which enters it once more. An identifier may come again after
    /// a reboot, so a second abort that was not the handler's is another death.
    static bool Continues(const Crash& death, const StackTrace& stack) {
        return stack.EnteredAgain() || (stack.ThroughAbort() && !death.stacks.back()->content.ThroughAbort());
    }

    /// A host that reports what it could not survive often has a crash log written first, with the same code.
    void JoinReports() {
        std::vector<LogGaps> gaps;
        for (const Crash& death : deaths_) {
            gaps.push_back(GapsOf(death));
        }
        const std::vector<ReportMatch> matches = MatchReports(gaps);
        std::vector<Crash> others;
        for (std::size_t i = 0; i < matches.size(); ++i) {
            Crash& death = deaths_[i];
            if (matches[i].log) {
                Join(crashes_[*matches[i].log], death);
                continue;
            }
            for (const std::size_t log : matches[i].perhaps) {
                death.perhapsOf.push_back(crashes_[log].files.front());
            }
            StateDoubt(death);
            others.push_back(std::move(death));
        }
        deaths_ = std::move(others);
    }

    LogGaps GapsOf(const Crash& death) const {
        const auto& host = death.stacks.front()->content.host;
        const auto& written = files_[death.files.front()].modified;
        LogGaps gaps;
        for (const Crash& crash : crashes_) {
            const bool hasCode = host && host->code && crash.log->log.HasCode(*host->code);
            const auto& before = files_[crash.files.front()].modified;
            gaps.push_back(!hasCode                                 ? std::nullopt
                           : fileTimes_.Kept() && before && written ? GapBetween(*before, *written)
                                                                    : std::optional<std::int64_t>(0));
        }
        return gaps;
    }

    static void Join(Crash& crash, Crash& death) {
        crash.title = death.title;
        crash.stacks = std::move(death.stacks);
        crash.files.insert(crash.files.end(), death.files.begin(), death.files.end());
        crash.processId = death.processId;
    }

    void StateDoubt(const Crash& death) {
        std::string logs;
        for (const std::size_t log : death.perhapsOf) {
            logs += (logs.empty() ? "" : " or ") + files_[log].name;
        }
        if (!logs.empty()) {
            axis_.State({"report-uncertain", files_[death.files.front()].name +
                                                 " is perhaps of one death with " + logs +
                                                 ", by its code: nothing tells for certain, so that one "
                                                 "crash may be listed as two."});
        }
    }

    FileTimes KnownFileTimes() const {
        FileTimes times;
        if (axis_.Collected()) {
            times.Know(axis_.Collected()->utcOffset);
        }
        for (const Crash& crash : crashes_) {
            const auto& modified = files_[crash.files.front()].modified;
            if (crash.time && modified) {
                times.Compare(*modified, *crash.time, true);
            }
        }
        for (const auto& [file, last] : lastEvents_.ofFile) {
            if (files_[file].modified) {
                times.Compare(*files_[file].modified, last, false);
            }
        }
        return times;
    }

    /// They hold no date: nothing in the folder is later, but for the time of the file itself.
    void PlaceDeaths() {
        if (deaths_.empty()) {
            return;
        }
        std::optional<EventOrder::Key> last = lastEvents_.ofAll;
        for (const Crash& crash : crashes_) {
            last = crash.time ? std::max(last, std::optional(order_.KeyOf(crash.time, crash.boot))) : last;
        }
        for (Crash& death : deaths_) {
            const auto& modified = files_[death.files.front()].modified;
            const auto written = modified ? fileTimes_.Local(*modified) : std::nullopt;
            death.time = last ? std::optional(last->second + 1) : written;
            death.certainty = Certainty::Assumed();
            death.after = written ? CrashEvidence::kFileTime : CrashEvidence::kAssumed;
            if (written && death.time) {
                death.time = std::min(*death.time, *written);
                death.certainty.later = (*written - *death.time + kSecond - 1) / kSecond;
            }
        }
        std::stable_sort(deaths_.begin(), deaths_.end(),
                         [](const Crash& a, const Crash& b) { return Latest(a) < Latest(b); });
        StatePlaces(fileTimes_.Kept());
        for (Crash& death : deaths_) {
            Insert(std::move(death));
        }
    }

    static std::int64_t Latest(const Crash& death) {
        return death.time && death.certainty.later != Certainty::kUnbounded
                   ? *death.time + death.certainty.later * kSecond
                   : INT64_MAX;
    }

    void StatePlaces(bool kept) {
        const std::string count =
            deaths_.size() == 1 ? "A death" : std::to_string(deaths_.size()) + " deaths";
        axis_.State(
            {"death-assumed", count +
                                  " left stack traces, which hold no date: put after the last line of "
                                  "the folder (marked ?)" +
                                  (kept ? ", but no later than the file's own time." : std::string("."))});
        if (!kept) {
            axis_.State({"file-times-unusable",
                         "The files' own times fit no date in them, as if they were not kept when the files "
                         "were copied: they tell nothing about when a stack trace was written."});
        }
    }

    /// Whether a crash log is later than a death can be.
    bool IsLater(const Crash& crash, const Crash& death) const {
        const auto& logged = files_[crash.files.front()].modified;
        const auto& written = files_[death.files.front()].modified;
        return crash.log != nullptr && crash.time &&
               (*crash.time > Latest(death) ||
                (fileTimes_.Kept() && logged && written && *logged > *written));
    }

    /// After all crashes but those that are later than the death can be.
    void Insert(Crash death) {
        auto at = crashes_.end();
        while (order_.IsThatOfTimes() && at != crashes_.begin() && IsLater(*std::prev(at), death)) {
            --at;
            if (death.time >= at->time) {
                death.certainty.later += (*death.time - *at->time) / kSecond + 1;
                death.time = *at->time - 1;
            }
        }
        if (at == crashes_.begin()) {
            death.after = CrashEvidence::kNothing;
        }
        at = crashes_.insert(at, std::move(death));
        if (std::next(at) != crashes_.end()) {
            std::next(at)->after = CrashEvidence::kFileTime;
        }
    }

    void FindProcess(Crash& crash) const {
        const RingSource* const rings = sources_.Find<RingSource>();
        crash.process = rings != nullptr ? rings->WriterOf(crash.files.front()) : std::nullopt;
        if (!crash.process) {
            crash.process = crash.log->process;
        }
        if (crash.process) {
            crash.boot = axis_.AllProcesses()[*crash.process].boot;
        }
    }

    /// Threads tell the process of what has no date. Where a crash log tells of a process that left nothing
    /// else, that may have had the same ones, and where several tell of one process, so may several.
    void DoubtRecords() {
        Processes& processes = axis_.AllProcesses();
        std::map<std::size_t, std::size_t> logsOf;
        bool anyStranger = false;
        for (const Crash& crash : crashes_) {
            anyStranger = anyStranger || !crash.process;
            logsOf[crash.process.value_or(0)] += 1;
        }
        for (std::size_t number = 1; number <= processes.All().size(); ++number) {
            if (logsOf[number] > 1) {
                processes.DoubtRecords(number,
                                       "it has several crash logs, perhaps of several processes with "
                                       "the same threads");
            } else if (anyStranger) {
                processes.DoubtRecords(number,
                                       "a crash log tells of another process, which may have had the "
                                       "same threads");
            }
        }
    }

    const std::vector<FolderFile>& files_;
    const SourceSet& sources_;
    const LastEvents& lastEvents_;
    Axis& axis_;
    EventOrder order_;
    FileTimes fileTimes_;
    std::vector<Crash> crashes_;
    std::vector<Crash> deaths_; ///< that left only stack traces
};

} // namespace

std::vector<Crash> FindCrashes(const std::vector<FolderFile>& files, const SourceSet& sources,
                               const LastEvents& lastEvents, Axis& axis) {
    return Finder(files, sources, lastEvents, axis).Run();
}

} // namespace NimaPost
