#pragma once

#include "tools/axis/Processes.h"
#include "tools/base/Certainty.h"
#include "tools/base/Findings.h"
#include "tools/base/TextFilter.h"
#include "tools/story/TimeBound.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace NimaPost {

/// Which part of what was read a user asks for, as it stands on the command line.
struct SelectionOptions {
    std::string since;
    std::string until;
    std::string around;
    std::string within;
    std::optional<std::int64_t> boot; ///< 0 is the last one, -1 the one before it
    std::optional<std::size_t> process;
    std::optional<std::uint64_t> last;
    std::vector<std::string> wanted;
    std::vector<std::string> refused;
    bool ignoreCase = false;

    bool operator==(const SelectionOptions&) const = default;
};

/// The same once it is known what there is.
class Selection {
  public:
    Selection() = default;

    /// Takes the options apart. False, with the reason, for what cannot be understood.
    bool Prepare(const SelectionOptions& options, std::string& problem);
    /// Whether the first and last time have to be known to settle it.
    bool NeedsEnds() const;
    /// Finds out what the options mean here. False, with the reason, where something asked for is not there.
    bool Settle(const Processes& processes, const Landmarks& landmarks, std::string& problem);

    /// Whether something is of the boot and process. What is not known to be is not.
    template <class Thing>
    bool IsOf(const Thing& thing) const {
        return (!boot_ || thing.boot == boot_) && (!process_ || thing.process == process_);
    }
    /// Whether a time that is shown is in the range.
    bool IsShownIn(const std::optional<std::int64_t>& time) const {
        return !limited_ || (time && *time >= since_ && *time < until_);
    }
    /// Whether it is, or could be by its bounds.
    bool MayBeIn(const std::optional<std::int64_t>& time, const Certainty& certainty) const {
        return IsShownIn(time) || CouldBeIn(time, certainty);
    }
    /// Whether an event or crash that is wanted otherwise is shown. What is not, but could be, is counted.
    bool IsIn(const std::optional<std::int64_t>& time, const Certainty& certainty) {
        if (IsShownIn(time)) {
            return true;
        }
        nearMisses_ += CouldBeIn(time, certainty) ? 1 : 0;
        return false;
    }
    /// Both, of a crash or an event.
    template <class Thing>
    bool Takes(const Thing& thing) {
        return IsOf(thing) && IsIn(thing.time, thing.certainty);
    }

    /// Which messages are asked for.
    TextFilter& Texts() { return texts_; }
    const std::optional<std::uint64_t>& Last() const { return last_; }
    bool LimitsTime() const { return limited_; }
    /// Whether it takes every boot, process and time.
    bool TakesAll() const { return !limited_ && !boot_ && !process_; }

    /// To be called before what was read is gone through once more.
    void BeginCount() { nearMisses_ = 0; }
    /// What the user should know of it afterwards.
    std::vector<Finding> Remarks() const;

  private:
    bool SettleBoot(const Processes& known, std::string& problem);
    bool SettleRange(const Landmarks& landmarks, std::string& problem);
    bool CouldBeIn(const std::optional<std::int64_t>& time, const Certainty& certainty) const;

    std::optional<TimeBound> sinceBound_;
    std::optional<TimeBound> untilBound_;
    std::optional<TimeBound> around_;
    std::int64_t within_ = 0;
    std::optional<std::int64_t> bootAsked_;
    std::optional<std::size_t> boot_;
    std::optional<std::size_t> process_;
    bool limited_ = false;
    std::int64_t since_ = std::numeric_limits<std::int64_t>::min();
    std::int64_t until_ = std::numeric_limits<std::int64_t>::max();
    TextFilter texts_;
    std::optional<std::uint64_t> last_;
    std::uint64_t nearMisses_ = 0;
};

} // namespace NimaPost
