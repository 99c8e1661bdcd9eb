#pragma once

#include "catalogue/Files.h"
#include "tools/base/LiveFile.h"
#include "tools/base/Process.h"
#include "tools/rings/Rings.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace NimaPost {

struct RingLook {
    std::uint32_t entries = 0;
    std::uint32_t used = 0;
    /// Slots that hold another record than at the previous look; empty at the first look. If all of them do,
    /// more may have been written.
    std::optional<std::uint32_t> fresh;
    std::optional<RingBufferData> newest;
};

/// What one look at the rings shows.
struct RingsLook {
    std::string problem; ///< why there is nothing to see; if set, the rest is void
    std::uint32_t processId = 0;
    ProcessState process;
    std::array<RingLook, RING_COUNT> rings;
};

/// Looks at the segment "System Ring Buffers" of a running process. Nothing in it says where a ring is
/// written next, so each look compares the ring's records with those of the previous look.
class LiveRings {
  public:
    explicit LiveRings(const std::string& directory)
        : file_(directory + '/' + Nima::Catalogue::kRingSegment.narrow,
                Nima::Catalogue::kRingSegment.narrow) {}

    const RingsLook& Look(std::vector<Finding>& notices);

  private:
    bool ReadRecords(const InputFile& file);
    void Compare(std::uint32_t index, const RingBufferData* now, const RingBufferData* before,
                 std::vector<Finding>& notices);
    void TakeNewestBySeam(const InputFile& file);

    LiveFile file_;
    RingsLook look_;
    RingDirectory directory_{};
    std::vector<RingBufferData> records_;
    std::array<std::optional<RingBufferData>, RING_COUNT> newest_;
    unsigned generation_ = 0;
    bool known_ = false; ///< `directory_` and `records_` are those of an earlier look
};

} // namespace NimaPost
