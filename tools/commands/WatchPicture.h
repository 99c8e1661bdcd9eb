#pragma once

#include "tools/base/Findings.h"
#include "tools/base/Output.h"
#include "tools/names/Names.h"
#include "tools/rings/LiveRings.h"
#include "tools/systrace/LiveTrace.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// What one tick has found.
struct WatchTick {
    std::uint64_t number = 0;
    std::int64_t time = 0;
    double seconds = 0; ///< since the previous tick
    const TraceLook* trace = nullptr;
    const RingsLook* rings = nullptr;
    std::vector<Finding> notices;

    double PerSecond(std::uint64_t count) const {
        return seconds > 0 ? static_cast<double>(count) / seconds : 0;
    }
};

/// Lines of printable text for one tick.
class WatchPicture {
  public:
    WatchPicture(const WatchTick& tick, const Names& names) : tick_(tick), names_(names) {}

    void Heading(const std::string& directory, const std::string& ending);

    /// Lines that are printable as they are.
    void Plain(const std::vector<std::string>& lines) {
        lines_.insert(lines_.end(), lines.begin(), lines.end());
    }

    void TraceHead();

    void Records(std::size_t most);

    void Rings();

    void Remark(std::string_view notice) { Line("note: ", notice); }

    std::vector<std::string>& Lines() { return lines_; }

  private:
    void Line(std::string label, std::string_view text);

    void RingLine(std::size_t index, const RingLook& ring);

    const WatchTick& tick_;
    const Names& names_;
    std::vector<std::string> lines_;
};

/// The same looks as JSON, with at most `most` of the last records.
Json TraceJson(const WatchTick& tick, const Names& names, std::size_t most);
Json RingsJson(const WatchTick& tick, const Names& names);

} // namespace NimaPost
