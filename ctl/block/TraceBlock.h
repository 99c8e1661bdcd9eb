#pragma once

#include "ctl/block/Segment.h"
#include "ctl/block/SharedWords.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <Diagnostics/Formats.h>

namespace NimaCtl {

/// The entries of the segment's block. Writers derive their mask from the segment's size, never from its
/// header, so that a header with another count is damaged.
inline constexpr std::uint32_t kEntries = 1 << 20;
static_assert(SYSTRACE_HEADER_SIZE + kEntries * sizeof(SysTraceEntry) <= SYSTRACE_SEGMENT_SIZE &&
              SYSTRACE_HEADER_SIZE + kEntries * sizeof(SysTraceEntry[2]) > SYSTRACE_SEGMENT_SIZE);
inline constexpr std::size_t kBlockBytes = SYSTRACE_HEADER_SIZE + kEntries * sizeof(SysTraceEntry);

/// Who lets records through.
enum class Filtering : unsigned char {
    kOn,
    kOff,     ///< nothing gets through, and no filter is set aside
    kCleared, ///< nothing gets through, and a filter is set aside
    kPartly   ///< something gets through, and a filter with more in it is set aside
};

/// Both filters of a block at one moment.
struct Filters {
    Filter live{};
    Filter saved{};

    bool operator==(const Filters&) const = default;

    /// Whether the saved filter has a bit that the live one lacks. A dump that runs or was killed has set it
    /// aside; or a repair has left it, as it must, and a process has closed levels since. The block looks the
    /// same then.
    bool SetAside() const;
    Filtering State() const;
    /// What gets through, or would if the filter that is set aside were brought back.
    Filter Effective() const;
    /// What is live in the end if a dump holds the filter; otherwise the live filter.
    const Filter& Lasting() const { return SetAside() ? saved : live; }
};

/// The SysTrace block of a directory, as the processes that map it see it.
class TraceBlock {
  public:
    /// Refuses a block that is not formatted or stays damaged; `problem` then says what is wrong.
    static std::optional<TraceBlock> Open(const std::string& directory, Access access, std::string& problem);

    const Segment& File() const { return segment_; }
    SysTraceHeader& Header() const { return *static_cast<SysTraceHeader*>(segment_.Bytes()); }
    SysTraceEntry* Entries() const {
        void* const first = static_cast<char*>(segment_.Bytes()) + SYSTRACE_HEADER_SIZE;
        return static_cast<SysTraceEntry*>(first);
    }

    /// A copy, each word read on its own.
    SysTraceHeader CopyHeader() const;
    /// A copy of consecutive slots, past the block's end and on from its front.
    std::vector<SysTraceEntry> CopyEntries(std::uint32_t firstSlot, std::uint32_t count) const;
    /// Read until two readings agree: a dump may begin or end between the one filter and the other.
    Filters ReadFilters() const;

  private:
    explicit TraceBlock(Segment segment) : segment_(std::move(segment)) {}

    Segment segment_;
};

/// What is wrong with a header; empty if nothing is. Every verb judges by this.
std::string DamageOf(const SysTraceHeader& header);

/// How many rounds through the slots writers have begun: by the wrap count, or where that is one behind, by
/// the write index.
std::uint32_t Rounds(const SysTraceHeader& header);

/// How many slots hold entries.
std::uint32_t UsedEntries(const SysTraceHeader& header);

} // namespace NimaCtl
