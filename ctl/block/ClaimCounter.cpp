#include "ctl/block/ClaimCounter.h"

#include <chrono>
#include <thread>

namespace NimaCtl {

ClaimCounter::ClaimCounter(const TraceBlock& block) : block_(block) {
    const SysTraceHeader header = block_.CopyHeader();
    index_ = header.writeIndex;
    wraps_ = header.wrapCount;
}

void ClaimCounter::Look() {
    constexpr std::int64_t kTurn = std::int64_t{1} << 32;
    constexpr std::uint32_t kMask = kEntries - 1;
    SysTraceHeader header = block_.CopyHeader();
    // The index tells the difference but for whole turns; the wrap count, which may be a round behind, tells
    // how many of those there were.
    const std::int64_t byWraps =
        (std::int64_t{header.wrapCount} - wraps_) * kEntries + (header.writeIndex & kMask) - (index_ & kMask);
    const std::int64_t byIndex{header.writeIndex - index_};
    const std::int64_t turns = (byWraps - byIndex + kTurn / 2) >> 32;
    const std::int64_t more = byIndex + turns * kTurn;
    if (more < 0 || header.wrapCount < wraps_) {
        cleared_ = true;
        // Of the two words that a clear stores, the other may still be the old one.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        header = block_.CopyHeader();
        sinceClear_ = header.writeIndex + 1; // of the index of an empty trace: none
        claimed_ += sinceClear_;
    } else {
        sinceClear_ += static_cast<std::uint64_t>(more);
        claimed_ += static_cast<std::uint64_t>(more);
    }
    index_ = header.writeIndex;
    wraps_ = header.wrapCount;
}

} // namespace NimaCtl
