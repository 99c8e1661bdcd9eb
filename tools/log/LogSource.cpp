#include "tools/log/LogSource.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"
#include "tools/log/LogEvents.h"
#include "tools/log/LogSet.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <utility>

namespace NimaPost {

namespace {

class LogSource : public Source {
  public:
    explicit LogSource(SourceSet& set) : Source(set, Stage::kLogs, EventKind::kText) {}

    void Read(FolderFile& file, InputFile& input) override {
        if (logs_.Take(input)) {
            files_.push_back(&file);
        } else {
            file.unusable = true;
            file.findings.Damage("not-a-log", "No line of a text log in it.");
        }
    }

    void Date(Axis& axis) override {
        const auto& collection = axis.Collected();
        logs_.SetCollected(collection ? std::optional(collection->moment) : std::nullopt);
        logs_.Arrange();
        if (logs_.LaterThanCollected() > 0) {
            axis.Contradict(Counted(logs_.LaterThanCollected(), "date") +
                            " in the logs later than the moment at which they were collected");
        }
        for (std::size_t i = 0; i < files_.size(); ++i) {
            files_[i]->findings = logs_.Sources()[i].findings;
        }
        NoteReadProblems();
        NumberProcesses(axis);
        const bool queue = std::any_of(logs_.Sources().begin(), logs_.Sources().end(),
                                       [](const auto& source) { return source.kind == LogKind::kQueue; });
        if (queue) {
            axis.SetWall();
        }
    }

    void Place(Axis& axis) override {
        std::int64_t next = 0;
        std::optional<Tie> last;
        logs_.ForEachPart([&](const LogPart& part) {
            if (!IsUndated(part)) {
                return;
            }
            const auto& tie = axis.Newest();
            if (tie) {
                undatedRuns_[part.run] =
                    tie->time + NearestStep(tie->counter, part.lastCounter) - part.length;
            } else {
                origin_ = next == 0 ? std::optional(part.run) : origin_;
                undatedRuns_[part.run] = next;
                last = Tie{part.lastCounter, next + part.length};
                next += part.length + kSecond;
            }
            axis.State(
                {"log-without-date",
                 files_[part.file]->name +
                     (tie ? ": without a date; its last line is taken to stand within half a second of the "
                            "others' end."
                          : ": without a date; its times count from its own first line.")});
        });
        if (last) {
            axis.SetNewest(*last);
        }
    }

    bool ForEach(const EventVisitor& visitor) const override {
        bool goOn = true;
        LogEvents events;
        logs_.ForEach([&](const LogEntry& entry) {
            TimelineEvent event = events.Of(entry);
            event.file = files_[entry.part->file]->index;
            if (entry.process) {
                event.process = numbers_[*entry.process - 1];
            }
            if (entry.part->process) {
                event.clock = logs_.SettingsBefore(entry.part->run);
            }
            const auto undated = undatedRuns_.find(entry.part->run);
            if (undated != undatedRuns_.end()) {
                (event.time ? event.time : event.place) = entry.time + undated->second;
                event.certainty = entry.part->run == origin_ ? event.certainty : Certainty::Assumed();
            }
            goOn = visitor(event);
            return goOn;
        });
        NoteReadProblems();
        return goOn;
    }

  private:
    void NumberProcesses(Axis& axis) {
        std::vector<ProcessFacts> facts;
        std::transform(logs_.Processes().begin(), logs_.Processes().end(), std::back_inserter(facts),
                       FactsOf);
        numbers_ = axis.AllProcesses().AddInOrder(facts);
        for (Finding& finding : logs_.ClockStatement(numbers_)) {
            axis.State(std::move(finding));
        }
        if (const auto anchor = logs_.LastAnchor()) {
            axis.SetNewest({anchor->counter, anchor->wall, TieKind::kLine, 0, numbers_[anchor->process]});
        }
        for (std::size_t i = 0; i < numbers_.size(); ++i) {
            const LogProcess& process = logs_.Processes()[i];
            const std::size_t number = numbers_[i];
            for (const ProcessClock& clock : process.clocks) {
                if (clock.date) {
                    WallOffset wall = *logs_.Runs()[clock.run].wall;
                    wall.Begin(clock.start);
                    axis.Add(
                        LogClock{number, clock.counter, std::move(wall), clock.first, process.nextOpening});
                    axis.SetWall();
                }
            }
        }
    }

    /// Logs are read again for each time they are told, and any time may fail.
    void NoteReadProblems() const {
        for (std::size_t i = 0; i < files_.size(); ++i) {
            logs_.Sources()[i].file.ReportReadProblem(files_[i]->findings);
        }
    }

    bool IsUndated(const LogPart& part) const {
        return !logs_.Runs()[part.run].wall && logs_.Sources()[part.file].kind != LogKind::kQueue &&
               part.stamped > 0;
    }

    LogSet logs_;
    std::vector<FolderFile*> files_;                  ///< of each of the set's files
    std::vector<std::size_t> numbers_;                ///< of each of the set's processes, on the axis
    std::map<std::size_t, std::int64_t> undatedRuns_; ///< where runs without a date were put
    std::optional<std::size_t> origin_;               ///< the one that all times count from
};

} // namespace

Source& TextLogs(SourceSet& set) {
    return set.Get<LogSource>();
}

} // namespace NimaPost
