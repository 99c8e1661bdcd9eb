#include "tools/story/Timeline.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <unordered_set>

namespace NimaPost {

namespace {

constexpr std::uint64_t kMostTextBytes = 64 << 20;
/// The head of a dump is written before what it dumps, and the device goes on meanwhile.
constexpr std::int64_t kDumpTakes = kSecond / 5;

/// From one counter to another by the shorter way round.
std::int64_t NearestStep(std::int64_t from, std::int64_t to) {
    const std::int64_t step = StepForward(from, to);
    return step > kCounterPeriod / 2 ? step - kCounterPeriod : step;
}

/// From a record back in time to a dump's head, or a moment the other way.
std::int64_t StepBefore(std::int64_t record, std::int64_t head) {
    const std::int64_t step = StepForward(record, head);
    return step > kCounterPeriod - kDumpTakes ? step - kCounterPeriod : step;
}

std::uint64_t Mix(std::uint64_t hash, std::uint64_t value) {
    hash = (hash ^ value) * 0x9E3779B97F4A7C15U;
    return hash ^ hash >> 32;
}

std::uint64_t HashOf(const SysTraceRecord& record) {
    return Mix(Mix(Mix(1, record.slot), record.id), record.stamp);
}

std::uint64_t HashOf(const Ring& ring, const RingRecord& record) {
    std::uint64_t hash = Mix(Mix(2, ring.index), static_cast<std::uint64_t>(record.data.timestamp));
    hash = Mix(hash, record.data.threadId);
    for (const std::uint32_t word : record.data.words) {
        hash = Mix(hash, word);
    }
    return hash;
}

std::uint64_t ClaimsOf(const SysTraceFile& trace) {
    const auto wraps = static_cast<std::uint64_t>(std::max(trace.header.wrapCount, 0));
    return wraps * trace.entryCount + (trace.header.writeIndex & (trace.entryCount - 1));
}

Sureness SurenessOf(const LogEntry& entry, bool assumed) {
    return assumed ? Sureness::kAssumed : entry.certainty.Exact() ? Sureness::kExact : Sureness::kShifted;
}

} // namespace

bool Timeline::Read(const std::string& folder, const Names& names, std::string& problem) {
    names_ = &names;
    if (!ReadFolder(folder, files_, problem)) {
        return false;
    }
    ReadLogs();
    for (std::size_t i = 0; i < files_.size(); ++i) {
        ReadFile(i, names);
    }
    if (!AnythingRead()) {
        problem = folder + ": nothing in it that the diagnostics library leaves behind";
        return false;
    }
    PlaceCrash();
    PlaceUndatedRuns();
    PlaceRings();
    PlaceTraces();
    MarkKnownRecords();
    return true;
}

bool Timeline::AnythingRead() const {
    return std::any_of(files_.begin(), files_.end(), [](const FolderFile& file) {
        return file.kind != FileKind::kOther && !file.unusable;
    });
}

Findings Timeline::AllFindings() const {
    Findings all;
    for (const FolderFile& file : files_) {
        for (const std::string& sentence : file.findings.damage) {
            all.Damage(file.name + ": " + sentence);
        }
    }
    return all;
}

void Timeline::ReadFile(std::size_t index, const Names& names) {
    FolderFile& file = files_[index];
    std::string problem;
    const auto input = InputFile::Open(file.path, problem);
    if (!input) {
        return;
    }
    Findings& findings = file.findings;
    if (file.kind == FileKind::kSysTrace) {
        auto trace = ReadSysTrace(*input, names, findings);
        file.unusable = !trace;
        if (trace) {
            traces_.push_back({index, std::move(*trace), 0, {}});
        }
    } else if (file.kind == FileKind::kRingSegment || file.kind == FileKind::kRingText) {
        auto set = file.kind == FileKind::kRingSegment
                       ? ReadRingSegment(*input, findings)
                       : ReadRingText(input->ReadAll(kMostTextBytes), findings);
        file.unusable = !set;
        if (set) {
            rings_.push_back({index, std::move(*set), {}, Sureness::kAssumed, {}});
        }
    } else if (file.kind == FileKind::kCrashLog) {
        auto log = ReadCrashLog(input->ReadAll(kMostTextBytes), findings);
        file.unusable = !log;
        if (log) {
            log->rings.date = log->date;
            rings_.push_back({index, log->rings, {}, Sureness::kAssumed, {}});
            const bool newer =
                !crash_ || (log->date && (!crash_->date || crash_->date->second < log->date->second));
            if (newer) {
                crash_ = std::move(*log);
            }
        }
    } else if (file.kind == FileKind::kStackTrace) {
        stacks_.push_back({file.name, ReadStackTrace(input->ReadAll(kMostTextBytes), findings)});
    }
}

void Timeline::ReadLogs() {
    for (std::size_t i = 0; i < files_.size(); ++i) {
        if (files_[i].kind == FileKind::kTextLog || files_[i].kind == FileKind::kQueueLog) {
            const std::size_t before = logs_.Sources().size();
            logs_.Add(files_[i].path, false);
            if (logs_.Sources().size() > before) {
                logFiles_.push_back(i);
            }
        }
    }
    logs_.Arrange();
    for (std::size_t i = 0; i < logFiles_.size(); ++i) {
        files_[logFiles_[i]].findings = logs_.Sources()[i].findings;
    }
    statement_ = logs_.ClockStatement();
    if (const auto anchor = logs_.LastAnchor()) {
        tie_ = Tie{anchor->counter, anchor->wall};
    }
    hasWall_ = std::any_of(logs_.Parts().begin(), logs_.Parts().end(),
                           [](const LogPart& part) { return part.date.has_value(); });
}

/// Where a counter with a raw date stands: on the logs' clock if the second fits, else at the date's
/// earliest.
std::optional<Timeline::Tie> Timeline::TieOf(std::int64_t counter, const std::optional<RawDate>& date) const {
    if (!date) {
        return std::nullopt;
    }
    Tie tie{counter, date->Earliest()};
    if (const auto anchor = logs_.LastAnchor()) {
        const std::int64_t middle = date->second * kSecond + kSecond / 2;
        const std::int64_t step = NearestStep(anchor->counter, counter);
        const std::int64_t periods = (middle - anchor->wall - step) / kCounterPeriod;
        for (std::int64_t k = periods - 1; k <= periods + 1; ++k) {
            const std::int64_t time = anchor->wall + step + k * kCounterPeriod;
            // The logs' wall clock is known to a second at best, as long as the clock was not set.
            if (time >= date->second * kSecond - kSecond / 1000 && time < (date->second + 1) * kSecond) {
                tie.time = time;
            }
        }
    }
    return tie;
}

void Timeline::PlaceCrash() {
    if (!crash_ || !crash_->ticks) {
        return;
    }
    if (const auto tie = TieOf(*crash_->ticks, crash_->date)) {
        tie_ = tie;
        crashTime_ = tie->time;
        hasWall_ = true;
    }
}

void Timeline::PlaceUndatedRuns() {
    std::int64_t next = 0;
    for (const LogPart& part : logs_.Parts()) {
        const bool dated = logs_.Runs()[part.run].wall || logs_.Sources()[part.file].kind == LogKind::kQueue;
        if (dated || part.stamped == 0) {
            continue;
        }
        if (tie_) {
            undatedRuns_[part.run] = tie_->time + NearestStep(tie_->counter, part.lastCounter) - part.length;
        } else {
            undatedRuns_[part.run] = next;
            next += part.length + kSecond;
        }
        statement_.push_back(files_[logFiles_[part.file]].name +
                             (tie_ ? ": without a date; its last line is taken to stand within half a second "
                                     "of the others' end."
                                   : ": without a date; its times count from its own first line."));
    }
    if (!tie_ && !undatedRuns_.empty()) {
        const LogPart& part = logs_.Parts().back();
        tie_ = Tie{part.lastCounter, undatedRuns_[part.run] + part.length};
    }
}

void Timeline::PlaceRings() {
    // What was dumped as text says when, so it comes first, the newest in front; the segment adds what came
    // after.
    std::stable_sort(rings_.begin(), rings_.end(), [](const PlacedRings& x, const PlacedRings& y) {
        return std::pair(x.set.isText, x.set.date ? x.set.date->second : 0) >
               std::pair(y.set.isText, y.set.date ? y.set.date->second : 0);
    });
    for (PlacedRings& placed : rings_) {
        std::optional<Tie> tie = tie_;
        if (placed.set.ticks) {
            const auto own = TieOf(*placed.set.ticks, placed.set.date);
            tie = own ? own : tie;
            hasWall_ = hasWall_ || own;
        }
        for (const Ring& ring : placed.set.rings) {
            const std::int64_t counter = ring.records.empty() ? 0 : ring.records.back().data.timestamp;
            if (!tie && !ring.records.empty()) {
                tie_ = tie = Tie{counter, ring.records.back().elapsed};
            }
            placed.newest.push_back(ring.records.empty() ? 0
                                    : placed.set.ticks   ? tie->time - StepBefore(counter, tie->counter)
                                                         : tie->time + NearestStep(tie->counter, counter));
        }
    }
    if (!rings_.empty()) {
        statement_.emplace_back(
            "Every ring's newest record is taken to stand within a second of the moment the rings were "
            "read or written; its ring may be older by whole seconds.");
    }
}

void Timeline::PlaceTraces() {
    std::stable_sort(traces_.begin(), traces_.end(), [](const PlacedTrace& a, const PlacedTrace& b) {
        return ClaimsOf(a.trace) > ClaimsOf(b.trace);
    });
    for (PlacedTrace& placed : traces_) {
        const auto& records = placed.trace.records;
        if (records.empty()) {
            continue;
        }
        const SysTraceRecord& last = records.back();
        if (!tie_) {
            tie_ = Tie{last.stamp, last.elapsed};
        }
        placed.origin = tie_->time + NearestStep(tie_->counter, last.stamp) - last.elapsed;
    }
    if (!traces_.empty()) {
        statement_.push_back(
            std::string("The binary trace's newest record is taken to stand within half a second of ") +
            (crashTime_ ? "the crash log's head" : "the end of what is dated") +
            "; its times before that are the latest possible.");
    }
}

/// Dumps repeat what the segment holds, and each other. Every record is told once, from the source that has
/// most.
void Timeline::MarkKnownRecords() {
    std::unordered_set<std::uint64_t> seen;
    for (PlacedTrace& placed : traces_) {
        placed.known.reserve(placed.trace.records.size());
        for (const SysTraceRecord& record : placed.trace.records) {
            placed.known.push_back(traces_.size() > 1 && !seen.insert(HashOf(record)).second);
        }
    }
    seen.clear();
    for (PlacedRings& placed : rings_) {
        for (const Ring& ring : placed.set.rings) {
            std::vector<bool>& known = placed.known.emplace_back();
            for (const RingRecord& record : ring.records) {
                known.push_back(rings_.size() > 1 && !seen.insert(HashOf(ring, record)).second);
            }
        }
    }
}

void Timeline::ForEach(const std::function<bool(const TimelineEvent&)>& visitor) const {
    if (!VisitLogs(visitor)) {
        return;
    }
    for (const PlacedTrace& placed : traces_) {
        if (!VisitTrace(placed, visitor)) {
            return;
        }
    }
    for (const PlacedRings& placed : rings_) {
        if (!VisitRings(placed, visitor)) {
            return;
        }
    }
}

bool Timeline::VisitLogs(const std::function<bool(const TimelineEvent&)>& visitor) const {
    bool goOn = true;
    std::optional<std::uint32_t> thread;
    std::string level;
    std::string tracer;
    logs_.ForEach([&](const LogEntry& entry) {
        if (!entry.hasTime) {
            return true;
        }
        if (entry.line.hasHeader) {
            thread = entry.line.thread;
            level = entry.line.level;
            tracer = entry.line.tracer;
        }
        const auto undated = undatedRuns_.find(entry.part->run);
        TimelineEvent event;
        event.kind = EventKind::kText;
        event.time = entry.time + (undated != undatedRuns_.end() ? undated->second : 0);
        event.sureness = SurenessOf(entry, undated != undatedRuns_.end());
        event.source = logFiles_[entry.part->file];
        event.thread = thread;
        event.level = level;
        event.name = tracer;
        event.text = entry.line.message;
        event.mark = entry.part->overwritten ? "overwritten" : "";
        goOn = visitor(event);
        return goOn;
    });
    return goOn;
}

bool Timeline::VisitTrace(const PlacedTrace& placed,
                          const std::function<bool(const TimelineEvent&)>& visitor) const {
    std::string level;
    std::string component;
    std::string text;
    for (std::size_t i = 0; i < placed.trace.records.size(); ++i) {
        if (placed.known[i]) {
            continue;
        }
        const SysTraceRecord& record = placed.trace.records[i];
        const EventName* name = names_->Event(record.Component(), record.Event());
        TimelineEvent event;
        event.kind = EventKind::kBinary;
        event.time = placed.origin + record.elapsed;
        event.sureness = Sureness::kAssumed;
        event.source = placed.source;
        event.thread = record.hasThread ? std::optional(record.thread) : std::nullopt;
        level = names_->Level(record.Level());
        component = names_->Component(record.Component());
        event.arguments = placed.trace.ValuesOf(record);
        text.clear();
        if (name != nullptr) {
            text = name->name;
            text += name->format.empty() ? "" : ": ";
            AppendFormatted(text, {name->name, name->format, name->arguments},
                            record.state == RecordState::kWhole && name->arguments
                                ? event.arguments
                                : std::span<const std::uint32_t>());
        } else {
            text = "event ";
            AppendHex(text, record.Event());
        }
        event.level = level;
        event.name = component;
        event.text = text;
        event.mark = record.state == RecordState::kTorn        ? "torn"
                     : record.state == RecordState::kEntangled ? "entangled"
                                                               : "";
        if (!visitor(event)) {
            return false;
        }
    }
    return true;
}

bool Timeline::VisitRings(const PlacedRings& placed,
                          const std::function<bool(const TimelineEvent&)>& visitor) const {
    std::string text;
    for (std::size_t r = 0; r < placed.set.rings.size(); ++r) {
        const Ring& ring = placed.set.rings[r];
        for (std::size_t i = 0; i < ring.records.size(); ++i) {
            if (placed.known[r][i]) {
                continue;
            }
            const RingRecord& record = ring.records[i];
            TimelineEvent event;
            event.kind = EventKind::kRing;
            event.time = placed.newest[r] - (ring.records.back().elapsed - record.elapsed);
            event.sureness = placed.sureness;
            event.source = placed.source;
            event.thread = record.data.threadId;
            event.name = ring.name;
            event.arguments = std::span(record.data.words).subspan(1);
            text.clear();
            if (const EventName* name = names_->RingEvent(ring.name, record.data.words[0])) {
                text = name->name;
                if (name->arguments) {
                    text += ": ";
                    AppendFormatted(text, *name,
                                    event.arguments.first(std::min<std::size_t>(*name->arguments, 4)));
                }
            } else {
                text = "code ";
                AppendHex(text, record.data.words[0]);
            }
            event.text = text;
            if (!visitor(event)) {
                return false;
            }
        }
    }
    return true;
}

} // namespace NimaPost
