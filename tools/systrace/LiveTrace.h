#pragma once

#include "catalogue/Files.h"
#include "catalogue/SysTrace.h"
#include "tools/base/LiveFile.h"
#include "tools/systrace/SysTrace.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace NimaPost {

/// What one look at a SysTrace segment shows.
struct TraceLook {
    std::string problem; ///< why there is nothing to see; if set, the rest is void
    SysTraceHeader header{};
    /// Entries claimed since the previous look; empty at the first look.
    std::optional<std::uint64_t> newEntries;
    std::uint64_t newRecords = 0;  ///< how many of them begin a record
    std::uint64_t notLookedAt = 0; ///< how many of them were too many for one look
    std::array<std::uint64_t, Nima::Catalogue::kComponents> newOfComponent{}; ///< records
    SysTraceFile newest;                                                      ///< the last records
};

/// Looks at the segment "SysTrace Buffer" of a running process: each time at the header, at what was claimed
/// since the last look, and at a few hundred entries before that.
class LiveTrace {
  public:
    explicit LiveTrace(const std::string& directory)
        : file_(directory + '/' + Nima::Catalogue::kSysTraceSegment.narrow,
                Nima::Catalogue::kSysTraceSegment.narrow) {}

    const TraceLook& Look(const Names& names, std::vector<Finding>& notices);

  private:
    bool ReadHeader(const InputFile& file);
    void CountClaims(std::vector<Finding>& notices);
    void ReadEntries(const InputFile& file, const Names& names);
    void CountRecords(std::span<const SysTraceEntry> entries, std::uint32_t fresh);

    LiveFile file_;
    TraceLook look_;
    unsigned generation_ = 0;
    /// The last entries of the previous look: those that were claimed but not yet stored then are stored now.
    std::vector<SysTraceEntry> unsettled_;
    /// Entries claimed at the last look, modulo 2^32, and the wrap count at that time.
    std::optional<std::uint32_t> claimed_;
    std::int32_t wrapCount_ = -1;
};

} // namespace NimaPost
