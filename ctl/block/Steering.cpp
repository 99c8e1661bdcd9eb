#include "ctl/block/Steering.h"

#include "catalogue/SysTrace.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>

namespace NimaCtl {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// How long a change must have stayed. A dump that had read the filter before the change stores it within
/// this time.
constexpr milliseconds kStays{100};
constexpr milliseconds kLook{1};

/// One of those who wait for the turn is next. Without this, somebody who takes turn after turn would keep
/// the others waiting for ever.
bool TryNextPlace(int file, short kind) {
    struct flock place {};
    place.l_type = kind;
    place.l_whence = SEEK_SET;
    place.l_len = 1;
    return fcntl(file, F_OFD_SETLK, &place) == 0;
}

void Store(const TraceBlock& block, const FilterChange& change) {
    SysTraceHeader& header = block.Header();
    const Filter saved = LoadFilter(header.savedFilter);
    const bool setAside = std::any_of(saved.begin(), saved.end(), [](auto word) { return word != 0; });
    // The saved filter first: what a dump brings back from now on has the change.
    for (std::size_t i = 0; setAside && i < saved.size(); ++i) {
        Update(header.savedFilter[i], [&](std::uint32_t word) { return change.Of(word, i); });
    }
    for (std::size_t i = 0; i < saved.size(); ++i) {
        Update(header.liveFilter[i], [&](std::uint32_t word) { return change.Of(word, i); });
    }
}

} // namespace

void FilterChange::Open(std::uint32_t component, std::uint32_t level) {
    set[Nima::Catalogue::FilterWord(level, component)] |= Nima::Catalogue::FilterBit(component);
}

void FilterChange::Close(std::uint32_t component, std::uint32_t level) {
    clear[Nima::Catalogue::FilterWord(level, component)] |= Nima::Catalogue::FilterBit(component);
}

bool FilterChange::IsIn(const Filter& filter) const {
    for (std::size_t i = 0; i < filter.size(); ++i) {
        if (Of(filter[i], i) != filter[i]) {
            return false;
        }
    }
    return true;
}

Filter FilterChange::Touched() const {
    Filter touched = clear;
    for (std::size_t i = 0; i < touched.size(); ++i) {
        touched[i] |= set[i];
    }
    return touched;
}

SteeringResult Steer(const TraceBlock& block, const FilterChange& change, std::chrono::nanoseconds patience,
                     const IsToEnd& isToEnd) {
    SteeringResult result;
    result.before = block.ReadFilters();
    Store(block, change);
    const Clock::time_point begin = Clock::now();
    for (Clock::time_point stored = begin;;) {
        std::this_thread::sleep_for(kLook);
        const Clock::time_point now = Clock::now();
        const Filters filters = block.ReadFilters();
        if (!change.IsIn(filters.Lasting())) {
            Store(block, change);
            ++result.repeats;
            stored = now;
        }
        result.held = filters.SetAside();
        const bool verified = !result.held && now - stored >= kStays;
        if (verified || block.File().Lost() || (isToEnd && isToEnd()) ||
            now - begin >= std::max<std::chrono::nanoseconds>(patience, kStays)) {
            break;
        }
    }
    result.after = block.ReadFilters();
    result.done = change.IsIn(result.after.Lasting()) && change.IsIn(result.after.Effective());
    return result;
}

void BringBack(const TraceBlock& block) {
    SysTraceHeader& header = block.Header();
    for (std::size_t i = 0; i < SYSTRACE_FILTER_WORDS; ++i) {
        const std::uint32_t saved = Load(header.savedFilter[i]);
        Update(header.liveFilter[i], [&](std::uint32_t word) { return word | saved; });
    }
}

void ClearTrace(const TraceBlock& block) {
    constexpr std::uint32_t kNone = 0xFFFFFFFF;
    SysTraceHeader& header = block.Header();
    SharedWord wraps(reinterpret_cast<std::uint32_t&>(header.wrapCount));
    for (;;) {
        // In this order: the writer that claims the first slot afterwards counts up from -1. The other way
        // round its count could be overwritten, and the trace would look empty for a whole round.
        wraps.store(kNone);
        SharedWord(header.writeIndex).store(kNone);
        // A writer that was about to count a wrap may still store an old count.
        for (int looks = 0; looks < 10; ++looks) {
            std::this_thread::sleep_for(kLook);
            const std::uint32_t index = Load(header.writeIndex);
            if (wraps.load() == (index == kNone ? kNone : index / kEntries)) {
                return;
            }
        }
    }
}

std::optional<Turn> Turn::Take(const TraceBlock& block, std::chrono::nanoseconds patience,
                               std::string& problem, const IsToEnd& isToEnd) {
    const int file = block.File().Number();
    const Clock::time_point begin = Clock::now();
    for (bool isNext = false;;) {
        isNext = isNext || TryNextPlace(file, F_WRLCK);
        if (isNext && flock(file, LOCK_EX | LOCK_NB) == 0) {
            TryNextPlace(file, F_UNLCK);
            return Turn(file);
        }
        const bool waits = errno == EWOULDBLOCK || errno == EACCES || errno == EINTR;
        const bool ends = isToEnd && isToEnd();
        if (!waits || ends || Clock::now() - begin >= patience) {
            problem = ends ? "interrupted; nothing was changed"
                      : waits
                          ? "another nima-ctl has been changing this block for " +
                                std::to_string(std::chrono::ceil<std::chrono::seconds>(patience).count()) +
                                " seconds; nothing was changed"
                          : block.File().Path() + ": cannot be locked: " + std::strerror(errno);
            TryNextPlace(file, F_UNLCK);
            return std::nullopt;
        }
        std::this_thread::sleep_for(milliseconds(10));
    }
}

Turn::~Turn() {
    if (file_ >= 0) {
        flock(file_, LOCK_UN);
    }
}

} // namespace NimaCtl
