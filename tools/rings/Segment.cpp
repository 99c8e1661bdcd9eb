#include "tools/rings/Segment.h"

#include "catalogue/Rings.h"
#include "tools/base/Text.h"
#include "tools/rings/RingProcesses.h"
#include "tools/rings/Seam.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace NimaPost {

namespace {

bool TakeDirectory(std::string_view front, RingDirectory& directory) {
    if (front.size() < kDirectoryFields) {
        return false;
    }
    std::memcpy(&directory, front.data(), kDirectoryFields);
    return true;
}

bool IsPlausible(const RingDirectory& directory, std::uint64_t fileSize) {
    const std::uint64_t segment = directory.segmentSize;
    if (segment <= RING_DIRECTORY_SIZE || segment % RING_DIRECTORY_SIZE != 0 || segment > (1U << 30)) {
        return false;
    }
    std::uint64_t records = 0;
    for (const std::uint32_t entries : directory.entryCounts) {
        records += entries;
    }
    const bool fits = records * RING_RECORD_SIZE + RING_DIRECTORY_SIZE <= segment && records > 0;
    // The file is a byte shorter than the mapping.
    return fits || fileSize + 1 == segment;
}

/// Records of one ring as they are in the segment.
void TakeSlots(std::string_view bytes, Ring& ring) {
    const std::size_t count = bytes.size() / RING_RECORD_SIZE;
    for (std::size_t slot = 0; slot < count; ++slot) {
        RingRecord record;
        std::memcpy(&record.data, bytes.data() + slot * RING_RECORD_SIZE, RING_RECORD_SIZE);
        if (record.data.timestamp != 0) {
            record.slot = static_cast<std::uint32_t>(slot);
            ring.records.push_back(record);
        }
    }
    OrderRing(ring, ring.records.size() == ring.entries, std::nullopt);
}

/// Reads the rings one after the other. Returns where the last one ends, and how many records the file lacks.
std::uint64_t ReadRings(const InputFile& file, const RingDirectory& directory, RingSet& set,
                        std::uint64_t& missing) {
    std::uint64_t offset = RING_DIRECTORY_SIZE;
    for (std::uint32_t i = 0; i < RING_COUNT; ++i) {
        Ring ring;
        ring.index = i;
        ring.name = Nima::Catalogue::kRings[i].name;
        ring.entries = directory.entryCounts[i];
        const std::uint64_t bytes = std::uint64_t{ring.entries} * RING_RECORD_SIZE;
        const std::uint64_t present = file.Size() > offset ? std::min(file.Size() - offset, bytes) : 0;
        std::string content(static_cast<std::size_t>(present), '\0');
        content.resize(file.ReadAt(offset, content));
        // The file lacks the last byte of the last record, which is shown as zero.
        if (bytes - content.size() == 1 && i + 1 == RING_COUNT) {
            content.push_back('\0');
        }
        missing += (bytes - content.size() + RING_RECORD_SIZE - 1) / RING_RECORD_SIZE;
        TakeSlots(content, ring);
        offset += bytes;
        set.rings.push_back(std::move(ring));
    }
    return offset;
}

} // namespace

bool LooksLikeRingSegment(std::string_view front, std::uint64_t size) {
    RingDirectory directory{};
    return TakeDirectory(front, directory) && IsPlausible(directory, size);
}

std::optional<RingSet> ReadRingSegment(const InputFile& file, Findings& findings) {
    RingDirectory directory{};
    if (!TakeDirectory(file.ReadAll(kDirectoryFields), directory)) {
        findings.Damage("directory-cut", "Too short for the rings' directory.");
        return std::nullopt;
    }
    if (directory.segmentSize <= RING_DIRECTORY_SIZE) {
        findings.Damage("no-rings", "No rings were ever laid out here: the directory's segment size is " +
                                        std::to_string(directory.segmentSize) + ".");
        return std::nullopt;
    }
    if (!IsPlausible(directory, file.Size())) {
        findings.Damage("not-rings", "Neither a ring segment nor a text dump of one.");
        return std::nullopt;
    }
    RingSet set;
    set.processId = directory.processId;
    std::uint64_t missing = 0;
    const std::uint64_t end = ReadRings(file, directory, set, missing);
    TellProcesses(set, findings);
    if (end > directory.segmentSize) {
        findings.Damage("directory-too-large", "The directory promises " + std::to_string(end) +
                                                   " bytes in a segment of " +
                                                   std::to_string(directory.segmentSize) + ".");
    }
    if (missing > 0) {
        findings.Damage("file-cut", "The file is cut: it lacks " + Counted(missing, "record") + ".");
    }
    return set;
}

} // namespace NimaPost
