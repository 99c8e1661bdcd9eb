#pragma once

#include "tools/base/CounterClock.h"
#include "tools/names/Names.h"
#include "tools/systrace/ClaimedEntries.h"
#include "tools/systrace/SysTrace.h"

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

namespace NimaPost {

inline constexpr std::uint32_t kNone = 0xFFFFFFFF;
/// A delayed writer's next entry is claimed after a few others, not after thousands.
inline constexpr std::uint32_t kLongestOverlap = 64;
/// But a free-running writer that the processor leaves in the middle of a record finishes it long after
/// others have filled the block.
inline constexpr std::int64_t kLongestHold = 10 * kSecond;

/// The records of a trace while they are being put together: a continuation goes to the last record of its
/// id.
class Drafts {
  public:
    /// What is known of a record besides its values. Positions are those among the claimed entries.
    struct Draft {
        std::uint32_t position = 0;
        std::uint32_t last = 0; ///< of its last entry
        std::uint32_t nextOfEvent = kNone;
        bool contiguous = true;
    };
    struct Event {
        std::uint32_t lastRecord = kNone;
        std::uint32_t firstRecord = kNone;
        /// Continuations that its records have, if that is known.
        std::uint32_t length = kNone;
        bool certain = false;   ///< no record of the event has a different number
        bool scattered = false; ///< its records seem to have all kinds of lengths
        /// Positions of the continuations before its first record.
        std::vector<std::uint32_t> strays;
    };

    Drafts(SysTraceFile& trace, const ClaimedEntries& claimed, const Names& names);

    bool ThreadEntries() const { return threadEntries_; }
    bool Wrapped() const { return claimed_.wrapped; }
    const std::unordered_map<std::uint32_t, Event>& Events() const { return events_; }
    const Draft& operator[](std::uint32_t record) const { return drafts_[record]; }

    std::uint32_t ValueAt(std::uint32_t position) const { return claimed_.entries[position].value; }
    /// Where a value was stored, by its index in the trace's values.
    std::uint32_t PositionOf(std::uint32_t value) const { return positions_[value]; }
    std::uint32_t LastValue(std::uint32_t record) const;
    /// Whether several records end in this value.
    bool IsKnownThread(std::uint32_t value) const;
    /// Whether the thread began and ended a record between two positions: then it had no other one open
    /// there.
    bool Wrote(std::uint32_t thread, std::uint32_t after, std::uint32_t before) const;

    /// Whether a continuation may belong to a record that a wrap has cut. The thread, if that is known, has
    /// then begun no record since.
    bool CutByWrap(std::uint32_t at, std::optional<std::uint32_t> thread) const {
        return at < wrapReach_ && (!thread || !Wrote(*thread, 0, at));
    }
    /// Claimed entries of two zero words.
    const std::vector<std::uint32_t>& NeverStored() const { return neverStored_; }

  private:
    void Gather();
    void Open(Event& event, std::uint32_t at, const SysTraceEntry& entry);
    void LayOutValues();
    void FindWrapReach();
    void LearnLengths();
    void LearnLength(Event& event);
    void LearnThreads();

    SysTraceFile& trace_;
    const ClaimedEntries& claimed_;
    const Names& names_;
    bool threadEntries_;
    /// Entries from here on are too late for what a wrap has cut: 0 where nothing wrapped.
    std::uint32_t wrapReach_ = 0;
    std::vector<std::uint32_t> neverStored_;
    std::vector<Draft> drafts_;
    std::vector<std::uint32_t> owner_;     ///< the record of each continuation
    std::vector<std::uint32_t> positions_; ///< of each value
    std::unordered_map<std::uint32_t, Event> events_;
    std::unordered_map<std::uint32_t, std::uint32_t> threads_; ///< how many records end in a value
    /// Where each thread began a record of the usual length in one go.
    std::unordered_map<std::uint32_t, std::vector<std::uint32_t>> writes_;
};

} // namespace NimaPost
