#include "tools/rings/LiveRings.h"

#include "catalogue/Rings.h"
#include "tools/base/CounterClock.h"
#include "tools/rings/Segment.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace NimaPost {

namespace {

/// Thirty times what the library lays out.
constexpr std::uint64_t kMostRecords = 1 << 19;

bool Same(const RingBufferData& a, const RingBufferData& b) {
    return std::memcmp(&a, &b, sizeof(a)) == 0;
}

} // namespace

const RingsLook& LiveRings::Look(std::vector<Finding>& notices) {
    look_ = RingsLook();
    const InputFile* file = file_.Look(notices);
    const RingDirectory directoryBefore = directory_;
    const std::vector<RingBufferData> before = std::move(records_);
    records_.clear();
    if (file == nullptr) {
        look_.problem = file_.Problem();
    }
    if (file == nullptr || !ReadRecords(*file)) {
        known_ = false;
        return look_;
    }
    look_.processId = directory_.processId;
    look_.process = StateOfProcess(look_.processId);
    const bool sameFile = known_ && generation_ == file_.Generation();
    if (sameFile && std::memcmp(&directory_, &directoryBefore, kDirectoryFields) != 0) {
        notices.push_back({"rings-laid-out",
                           "Process " + std::to_string(look_.processId) + " has laid the rings out again."});
    }
    const bool comparable = sameFile && directory_.segmentSize == directoryBefore.segmentSize &&
                            std::equal(std::begin(directory_.entryCounts), std::end(directory_.entryCounts),
                                       std::begin(directoryBefore.entryCounts));
    std::size_t offset = 0;
    if (!comparable) {
        newest_.fill(std::nullopt);
    }
    for (std::uint32_t i = 0; i < RING_COUNT; ++i) {
        look_.rings[i].entries = directory_.entryCounts[i];
        Compare(i, records_.data() + offset, comparable ? before.data() + offset : nullptr, notices);
        offset += look_.rings[i].entries;
    }
    TakeNewestBySeam(*file);
    generation_ = file_.Generation();
    known_ = true;
    return look_;
}

bool LiveRings::ReadRecords(const InputFile& file) {
    std::array<char, kDirectoryFields> head{};
    if (file.ReadAt(0, head) < head.size()) {
        look_.problem = file_.ProblemOr(file_.Name() + " ends inside its directory.");
        return false;
    }
    std::memcpy(&directory_, head.data(), head.size());
    if (directory_.segmentSize <= RING_DIRECTORY_SIZE) {
        look_.problem = "No rings are laid out in " + file_.Name() + ".";
        return false;
    }
    std::uint64_t count = 0;
    for (const std::uint32_t entries : directory_.entryCounts) {
        count += entries;
    }
    if (count > kMostRecords) {
        look_.problem =
            "The directory of " + file_.Name() + " cannot be right: " + std::to_string(count) + " records.";
        return false;
    }
    records_.resize(static_cast<std::size_t>(count));
    const std::size_t bytes = records_.size() * sizeof(RingBufferData);
    const std::size_t got =
        file.ReadAt(RING_DIRECTORY_SIZE, {reinterpret_cast<char*>(records_.data()), bytes});
    // The file lacks the last byte of the mapping.
    if (got + 1 < bytes) {
        look_.problem = file_.ProblemOr(file_.Name() + " is cut: " + std::to_string(file.Size()) +
                                        " bytes of " + std::to_string(directory_.segmentSize - 1) + ".");
        return false;
    }
    return true;
}

void LiveRings::Compare(std::uint32_t index, const RingBufferData* now, const RingBufferData* before,
                        std::vector<Finding>& notices) {
    RingLook& ring = look_.rings[index];
    std::uint32_t usedBefore = 0;
    std::uint32_t fresh = 0;
    std::optional<RingBufferData> newest;
    const std::int64_t base = newest_[index] ? newest_[index]->timestamp : 0;
    const auto ahead = [&](const RingBufferData& record) { return StepForward(base, record.timestamp); };
    for (std::uint32_t slot = 0; slot < ring.entries; ++slot) {
        ring.used += now[slot].timestamp != 0 ? 1 : 0;
        if (before == nullptr) {
            continue;
        }
        usedBefore += before[slot].timestamp != 0 ? 1 : 0;
        if (now[slot].timestamp == 0 || Same(now[slot], before[slot])) {
            continue;
        }
        ++fresh;
        // The last of a run of fresh slots is the newest of its writer, and different processes write in
        // different places.
        const std::uint32_t next = (slot + 1) % ring.entries;
        const bool ends = now[next].timestamp == 0 || Same(now[next], before[next]);
        if (ends && (!newest || ahead(now[slot]) > ahead(*newest))) {
            newest = now[slot];
        }
    }
    if (before != nullptr) {
        ring.fresh = fresh;
        if (ring.used < usedBefore) {
            notices.push_back({"ring-emptied",
                               "Ring " + std::string(Nima::Catalogue::kRings[index].name) + " was emptied."});
            newest_[index].reset();
        }
    }
    if (newest) {
        newest_[index] = newest;
    } else if (fresh > 0) {
        newest_[index].reset(); // All slots are fresh.
    }
}

/// If no comparison has shown which record is the newest, its place among the others does.
void LiveRings::TakeNewestBySeam(const InputFile& file) {
    bool missing = false;
    for (std::size_t i = 0; i < RING_COUNT; ++i) {
        missing = missing || (look_.rings[i].used > 0 && !newest_[i]);
    }
    Findings ignored;
    const auto set = missing ? ReadRingSegment(file, ignored) : std::nullopt;
    for (std::size_t i = 0; i < RING_COUNT; ++i) {
        if (set && !newest_[i] && !set->rings[i].records.empty()) {
            newest_[i] = set->rings[i].records.back().data;
        }
        look_.rings[i].newest = newest_[i];
    }
}

} // namespace NimaPost
