#pragma once

#include "ctl/block/TraceBlock.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace NimaCtl {

/// Bits of a filter to clear, and bits to set after that.
struct FilterChange {
    Filter clear{};
    Filter set{};

    void Open(std::uint32_t component, std::uint32_t level);
    void Close(std::uint32_t component, std::uint32_t level);
    void CloseAll() { clear.fill(0xFFFFFFFF); }

    std::uint32_t Of(std::uint32_t word, std::size_t index) const {
        return (word & ~clear[index]) | set[index];
    }
    bool IsIn(const Filter& filter) const;
    /// Every bit that it decides about.
    Filter Touched() const;
};

struct SteeringResult {
    Filters before;
    Filters after;
    bool held = false;    ///< a filter stays set aside; both filters have the change
    bool done = false;    ///< the change is in what lasts
    unsigned repeats = 0; ///< how often a dump undid the change
};

/// Asked while something waits: whether it is to end early.
using IsToEnd = std::function<bool()>;

/// Changes the filter while processes trace and dump. A dump copies the live filter to the saved one, clears
/// the live one, and copies it back at its end, all without a lock; it may undo a change at each of these
/// steps. While a dump holds the filter, the change therefore goes into both. It counts as done once it has
/// stayed for a while with no dump holding the filter, and is repeated where it was lost.
///
/// Nothing is ever cleared in the saved filter but what the change clears, so that whatever a dump brings
/// back was in it.
SteeringResult Steer(const TraceBlock& block, const FilterChange& change, std::chrono::nanoseconds patience,
                     const IsToEnd& isToEnd = {});

/// Copies the saved filter to the live one and leaves the saved one: a dump that lives after all then still
/// brings back what it set aside.
void BringBack(const TraceBlock& block);

/// Empties the trace: stores the two indices that it has before its first record. Writers go on meanwhile.
void ClearTrace(const TraceBlock& block);

/// The right to change the block, which one nima-ctl has at a time. It is never held while a user is asked or
/// a recording runs.
class Turn {
  public:
    /// Waits for it. Empty, with a reason, if it does not come.
    static std::optional<Turn> Take(const TraceBlock& block, std::chrono::nanoseconds patience,
                                    std::string& problem, const IsToEnd& isToEnd = {});
    Turn(Turn&& other) noexcept : file_(std::exchange(other.file_, -1)) {}
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn();

    /// How long a verb waits.
    static constexpr std::chrono::seconds kPatience{30};

  private:
    explicit Turn(int file) : file_(file) {}

    int file_;
};

} // namespace NimaCtl
