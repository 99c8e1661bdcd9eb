#include "tools/log/SilentOpeners.h"

#include "tools/base/CounterClock.h"

#include <algorithm>

namespace NimaPost {

namespace {

/// From a calibration line to the first line of another thread, if that was started at once. An older line
/// follows as closely once in 50 times.
constexpr std::int64_t kStartTakes = 20'000'000;

bool IsFollowedAtOnce(const LogPart& part) {
    return part.calibrationHasStamp && part.second && !part.restFollows &&
           StepForward(part.calibration->counter, part.second->counter) < kStartTakes;
}

/// Whether a process opened the log at its end later on. A log that is opened so is written over only when
/// it is full, by a thread that others of its lines show.
bool IsAppended(const std::vector<LogPart>& parts) {
    const std::uint32_t opener = parts.front().calibration->thread;
    bool opened = false;
    for (std::size_t i = 1; i < parts.size(); ++i) {
        opened = opened || (parts[i].calibration && parts[i].begin > 0);
        if (parts[i].HasThread(opener)) {
            return false;
        }
    }
    return opened;
}

/// Whether a process wrote another log with the same opener and one of the other threads.
bool IsOneProcess(const LogPart& part, const LogPart& other) {
    if (!other.HasThread(part.calibration->thread) || !part.date || !other.date ||
        BeganWithTheDevice(*part.date, part.firstCounter)) {
        return false;
    }
    const auto fit =
        WallOffset(*part.date, 0).Compare(*other.date, StepForward(part.firstCounter, other.firstCounter));
    return fit.misfit <= kFitsClosely &&
           std::any_of(part.threads.begin(), part.threads.end(), [&](std::uint32_t thread) {
               return thread != part.calibration->thread && other.HasThread(thread);
           });
}

/// Where there is a backup, a log is not written over.
bool IsAlone(const std::vector<LogPart>& parts) {
    return std::all_of(parts.begin(), parts.end(),
                       [&](const LogPart& each) { return each.file == parts.front().file; });
}

bool MayBeOlder(const std::vector<LogPart>& parts) {
    const LogPart& part = parts.front();
    return part.openerIsSilent && part.begin == 0 && IsAlone(parts) && !IsFollowedAtOnce(part) &&
           !IsAppended(parts);
}

/// What stands at the start of a log without backups may be its newest part, with older lines after it.
bool MayHideOlder(const LogPart& part, const std::vector<LogPart>& parts) {
    return part.begin == 0 && part.calibration && IsAlone(parts);
}

} // namespace

void JudgeSilentOpeners(std::vector<std::vector<LogPart>>& logs) {
    for (std::vector<LogPart>& parts : logs) {
        if (!parts.empty()) {
            parts.front().mayBeOlder = MayBeOlder(parts);
        }
        for (LogPart& part : parts) {
            part.mayHideOlder = MayHideOlder(part, parts);
        }
    }
    for (std::vector<LogPart>& parts : logs) {
        if (parts.empty() || !parts.front().mayBeOlder) {
            continue;
        }
        parts.front().mayBeOlder = std::none_of(logs.begin(), logs.end(), [&](const auto& others) {
            return std::any_of(others.begin(), others.end(), [&](const LogPart& other) {
                return !other.mayBeOlder && IsOneProcess(parts.front(), other);
            });
        });
    }
}

} // namespace NimaPost
