#include "tools/systrace/Judgement.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace NimaPost {

namespace {

/// The most writers of the same event at the same moment that are plausible.
constexpr int kMostWriters = 64;

class Judge {
  public:
    Judge(SysTraceFile& trace, const Drafts& drafts) : trace_(trace), drafts_(drafts) {}

    std::vector<std::uint32_t> Run() {
        for (const auto& [id, event] : drafts_.Events()) {
            open_.clear();
            JudgeStrays(event);
            for (std::uint32_t i = event.firstRecord; i != kNone; i = drafts_[i].nextOfEvent) {
                if (trace_.records[i].state == RecordState::kWhole) {
                    JudgeRecord(i, event);
                }
            }
            short_.insert(short_.end(), open_.begin(), open_.end());
        }
        return std::move(short_);
    }

  private:
    std::optional<std::uint32_t> AsThread(std::uint32_t value) const {
        return drafts_.ThreadEntries() && drafts_.IsKnownThread(value) ? std::optional(value) : std::nullopt;
    }

    /// Remains of records that a wrap has cut are normal; each ends in its thread. Where that has written
    /// since the wrap, they are of an older round, or a writer that was held up for a round has overwritten
    /// the record.
    void JudgeStrays(const Drafts::Event& event) {
        std::uint64_t run = 0;
        const auto end = [&](std::uint32_t at, std::optional<std::uint32_t> thread) {
            const bool atFront = drafts_.Wrapped() && at < kLongestOverlap;
            auto& count = atFront || drafts_.CutByWrap(at, thread) ? trace_.cutOff
                          : drafts_.CutByWrap(at, std::nullopt)    ? trace_.stale
                                                                   : trace_.orphans;
            count += std::exchange(run, 0);
        };
        for (const std::uint32_t at : event.strays) {
            ++run;
            if (const auto thread = AsThread(drafts_.ValueAt(at))) {
                end(at, thread);
            }
        }
        if (run > 0) {
            end(event.strays.back(), std::nullopt);
        }
    }

    void JudgeRecord(std::uint32_t index, const Drafts::Event& event) {
        SysTraceRecord& record = trace_.records[index];
        const bool noThread = drafts_.ThreadEntries() && record.values == 0;
        const bool tooShort = noThread || (event.length != kNone && record.values < event.length);
        if (tooShort && MarkEntangled(index, event.length)) {
            return;
        }
        if (event.scattered && !event.certain && !drafts_[index].contiguous) {
            // Its writers overlapped all the time, and nobody knows how many values it has.
            Entangle(index);
            return;
        }
        if (JudgeSurplus(index, event)) {
            return;
        }
        const bool wrongLength = event.length != kNone && record.values != event.length;
        // A record of unusual length is doubtful if it does not end in the identifier of a known thread.
        const bool strangeEnd = wrongLength && drafts_.ThreadEntries() && record.values > 0 &&
                                !AsThread(drafts_.LastValue(index));
        if (noThread || (wrongLength && event.certain) || strangeEnd) {
            record.state = RecordState::kTorn;
            ++trace_.torn;
            if (tooShort) {
                open_.push_back(index);
            }
        }
    }

    void Entangle(std::uint32_t index) {
        SysTraceRecord& record = trace_.records[index];
        trace_.torn -= record.state == RecordState::kTorn ? 1 : 0;
        record.state = RecordState::kEntangled;
        ++trace_.entangled;
    }

    /// Whether the values that a short record lacks are with records of the same event that began before it
    /// ended. All of these are then entangled.
    bool MarkEntangled(std::uint32_t first, std::uint32_t length) {
        std::uint64_t have = trace_.records[first].values;
        std::uint64_t wanted = length;
        std::uint32_t last = first;
        int writers = 1;
        for (std::uint32_t i = drafts_[first].nextOfEvent; i != kNone; i = drafts_[i].nextOfEvent) {
            if (drafts_[i].position - drafts_[last].position > kLongestOverlap || ++writers > kMostWriters) {
                return false;
            }
            last = i;
            have += trace_.records[i].values;
            if (length == kNone ? trace_.records[i].values > 1 : have >= (wanted += length)) {
                break;
            }
            if (drafts_[i].nextOfEvent == kNone) {
                return false;
            }
        }
        if (last == first || (length != kNone && have != wanted)) {
            return false;
        }
        for (std::uint32_t i = first;; i = drafts_[i].nextOfEvent) {
            Entangle(i);
            if (i == last) {
                return true;
            }
        }
    }

    /// What follows a whole record up to a thread: the rest of another one.
    struct Rest {
        std::uint32_t first = 0; ///< in the trace's values
        std::uint32_t end = 0;
        std::optional<std::uint32_t> thread;
    };

    /// A record is over with its thread. Whatever follows belongs to records that began earlier, whose
    /// writers were held up, or to an older round of the block.
    bool JudgeSurplus(std::uint32_t index, const Drafts::Event& event) {
        SysTraceRecord& record = trace_.records[index];
        if (!drafts_.ThreadEntries() || event.length == kNone || event.length == 0 ||
            record.values <= event.length) {
            return false;
        }
        const Drafts::Draft& draft = drafts_[index];
        const auto thread = AsThread(trace_.values[record.firstValue + event.length - 1]);
        if (!event.certain && AsThread(drafts_.LastValue(index)) &&
            (!thread || (draft.contiguous && !drafts_.Wrapped()))) {
            return false; // Perhaps the event has this many values now and then.
        }
        const std::uint32_t end = record.firstValue + record.values;
        const bool held = !open_.empty();
        const bool cut = drafts_.CutByWrap(drafts_.PositionOf(end - 1), std::nullopt);
        // A thread that has written a record since then does not finish an earlier one now.
        const std::uint32_t since = held ? drafts_[open_.front()].position + 1 : 0;
        if (!thread || ((held || cut) && !drafts_.Wrote(*thread, since, draft.position))) {
            if (held || cut) {
                TakeFromOpen(record.values - event.length, event.length);
                Entangle(index);
            }
            return held || cut;
        }
        record.values = event.length;
        Rest rest{record.firstValue + event.length, 0, std::nullopt};
        for (std::uint32_t i = rest.first; i < end; ++i) {
            rest.thread = AsThread(trace_.values[i]);
            if (rest.thread || i + 1 == end) {
                rest.end = i + 1;
                JudgeRest(rest, event.length);
                rest.first = i + 1;
            }
        }
        return true;
    }

    void JudgeRest(const Rest& rest, std::uint32_t length) {
        const std::uint32_t at = drafts_.PositionOf(rest.end - 1);
        const std::uint32_t count = rest.end - rest.first;
        const auto mayFinish = [&](std::uint32_t record) {
            return !rest.thread || !drafts_.Wrote(*rest.thread, drafts_[record].position, at);
        };
        const auto first = std::find_if(open_.begin(), open_.end(), mayFinish);
        const bool cut = rest.thread && drafts_.CutByWrap(at, rest.thread);
        if (first == open_.end()) {
            (cut ? trace_.cutOff : trace_.stale) += count;
            return;
        }
        const bool only = std::find_if(first + 1, open_.end(), mayFinish) == open_.end();
        const bool fits = trace_.records[*first].values + count == length;
        if (only && fits && !cut && rest.thread) {
            Complete(*first, rest);
        } else {
            Entangle(*first);
        }
        open_.erase(first);
    }

    void Complete(std::uint32_t index, const Rest& rest) {
        SysTraceRecord& record = trace_.records[index];
        auto& values = trace_.values;
        const auto first = static_cast<std::uint32_t>(values.size());
        for (const auto& [from, end] :
             {std::pair(record.firstValue, record.firstValue + record.values), {rest.first, rest.end}}) {
            for (std::uint32_t i = from; i < end; ++i) {
                values.push_back(std::uint32_t{values[i]});
            }
        }
        record.firstValue = first;
        record.values += rest.end - rest.first;
        record.state = RecordState::kWhole;
        --trace_.torn;
    }

    /// Values of this many entries are those that earlier records lack, the oldest first.
    void TakeFromOpen(std::uint32_t count, std::uint32_t length) {
        std::size_t taken = 0;
        for (std::uint32_t left = count; left > 0 && taken < open_.size(); ++taken) {
            Entangle(open_[taken]);
            left -= std::min(left, length - trace_.records[open_[taken]].values);
        }
        open_.erase(open_.begin(), open_.begin() + static_cast<std::ptrdiff_t>(taken));
    }

    SysTraceFile& trace_;
    const Drafts& drafts_;
    std::vector<std::uint32_t> open_; ///< torn records of the event that lack values
    std::vector<std::uint32_t> short_;
};

} // namespace

std::vector<std::uint32_t> JudgeRecords(SysTraceFile& trace, const Drafts& drafts) {
    return Judge(trace, drafts).Run();
}

} // namespace NimaPost
