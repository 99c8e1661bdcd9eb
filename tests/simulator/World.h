#pragma once

#include "tests/simulator/Random.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Simulator {

constexpr std::int64_t kMicrosecond = 1'000;
constexpr std::int64_t kMillisecond = 1'000'000;
constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kMinute = 60 * kSecond;
constexpr std::int64_t kHour = 60 * kMinute;

/// The performance counter: seconds and nanoseconds of the monotonic clock, added.
constexpr std::int64_t CounterAt(std::int64_t monotonic) {
    return monotonic / kSecond + monotonic % kSecond;
}

/// What hampers writers. The main set keeps within 5 ms from a calibration line's stamp to its date and
/// within 100 ms from a stamp to its store, which is what readers assume; the second set does not.
struct Delays {
    std::int64_t longestDate = 4'500 * kMicrosecond;
    std::int64_t oneDateIn = 40; ///< so many calibration lines, one is held up; the others take microseconds
    std::int64_t longestStore = 85 * kMillisecond; ///< and a calibration meanwhile
    std::int64_t oneStoreIn = 25;
    std::int64_t longestSync = 40 * kMillisecond;

    static Delays Main() { return {}; }
    static Delays Second() { return {80 * kMillisecond, 4, 2 * kSecond, 15, 2 * kSecond}; }
    static Delays None() { return {0, 1, 0, INT64_MAX, 0}; }
};

/// A device with its clocks, and what it will do later.
class Device {
  public:
    Device(Random& random, Delays delays);

    std::int64_t Now() const { return now_; }
    std::int64_t Wall() const { return now_ + offset_; }
    /// How far the wall clock was ahead of the monotonic one, each time that it was set, by boots.
    const std::multimap<int, std::int64_t>& Clocks() const { return clocks_; }
    int Boot() const { return boot_; }

    /// Time in which the device's other work goes on.
    void Pass(std::int64_t nanoseconds);
    /// Time in the middle of something that holds all others up.
    void Hold(std::int64_t nanoseconds) { now_ += nanoseconds; }

    /// Something that a process does when so much time has passed.
    void After(std::int64_t nanoseconds, int process, std::function<void()> action);
    /// Lets everything happen that a process has begun.
    void Settle(int process);
    /// The process was killed.
    void Drop(int process);

    void SetClock(std::int64_t forward);
    /// With a clock that a battery keeps running, or one that begins anew at a fixed date.
    void Reboot(std::int64_t downTime, bool hasClock);
    /// A date at which a boot without a clock begins.
    void SetFixedDate(std::int64_t wall) { fixedDate_ = wall; }

    /// Between the stamp and the date of a calibration line.
    std::int64_t DateDelay();
    /// Between a stamp and its store; mostly none.
    std::int64_t StoreDelay();
    /// Until what was written is on the disk.
    std::int64_t SyncDelay();
    std::int64_t LongestDateDelay() const { return longestDateDelay_; }

  private:
    struct Pending {
        std::int64_t due;
        int process;
        std::function<void()> action;
    };
    /// The next due of a process, or of all of them for 0.
    std::vector<Pending>::iterator NextDue(int process);
    void Run(std::vector<Pending>::iterator next);

    Random& random_;
    Delays delays_;
    std::int64_t now_ = 0;
    std::int64_t offset_ = 0;
    std::multimap<int, std::int64_t> clocks_;
    std::int64_t fixedDate_ = 0;
    std::int64_t longestDateDelay_ = 0;
    int boot_ = 1;
    std::vector<Pending> pending_;
};

enum class Kind : unsigned char { kText, kBinary, kRing };

/// What is known of something that a device wrote.
struct Stamp {
    Kind kind = Kind::kText;
    std::int64_t wall = 0; ///< what the device's own clock showed
    std::int64_t monotonic = 0;
    std::uint32_t thread = 0;
    int process = 0;
    int boot = 0;
    std::string header; ///< of a line, up to its message
};

/// The truth about a folder. Everything but calibration lines bears a serial number, from 1.
struct Truth {
    std::vector<Stamp> stamps;
    /// By message; dates may repeat.
    std::multimap<std::string, Stamp> calibrations;
    /// Something in the folder is damaged.
    bool damaged = false;
    /// A line of a log was cut when its process died.
    bool torn = false;
    /// Two processes wrote one log: nothing tells their threads apart once a calibration line is overwritten.
    bool shared = false;
    /// What crash logs were written at, by the counters in their heads.
    std::map<std::int64_t, Stamp> crashes;
    /// What the wall clocks of each boot were ahead of its monotonic one.
    std::multimap<int, std::int64_t> clocks;
    /// How far a calibration line's date was from its stamp, at the most.
    std::int64_t dateDelay = 0;

    std::uint32_t Add(Stamp stamp);
    const Stamp* Of(std::uint64_t serial) const;
};

/// The files of a folder. A file that is open stays the same one when it is renamed.
class Files {
  public:
    struct File {
        std::string content;
        std::int64_t modified = 0;       ///< by the device's wall clock
        std::set<std::uint64_t> records; ///< serial numbers of those that are whole in it
    };
    using Handle = std::shared_ptr<File>;

    /// Creates the file if there is none.
    Handle Open(const std::string& name);
    /// A file as it is written at once, over what was there.
    void Put(const std::string& name, File file);
    bool Exists(const std::string& name) const { return files_.contains(name); }
    void Rename(const std::string& from, const std::string& to);
    void Remove(const std::string& name) { files_.erase(name); }
    const std::map<std::string, Handle>& All() const { return files_; }

    /// Puts all of them into a folder of the disk, with their times.
    void Store(const std::string& folder) const;

  private:
    std::map<std::string, Handle> files_;
};

/// Everything that one folder comes from.
struct World {
    World(std::uint64_t seed, std::string_view scenario, Delays delays);
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    /// A stamp of this moment; its serial number is that of the next one added.
    Stamp StampNow(Kind kind, int process, std::uint32_t thread) const;

    Random random;
    Device device;
    Files files;
    Truth truth;
    int processes = 0; ///< so far
};

} // namespace Simulator
