#include "ctl/RingsView.h"

#include "catalogue/Files.h"
#include "catalogue/Rings.h"
#include "ctl/block/Segment.h"
#include "tools/base/InputFile.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <cstddef>
#include <span>

namespace NimaCtl {

namespace {

/// All records in whole pages, and a page for the directory.
std::uint32_t SegmentSize() {
    std::uint32_t bytes = 0;
    for (const auto& ring : Nima::Catalogue::kRings) {
        bytes += ring.entries * RING_RECORD_SIZE;
    }
    constexpr std::uint32_t kPage = RING_DIRECTORY_SIZE;
    return (bytes + kPage - 1) / kPage * kPage + kPage;
}

std::string DirectoryDamage(const RingDirectory& directory) {
    if (directory.segmentSize <= RING_DIRECTORY_SIZE) {
        return "no rings were laid out in it";
    }
    if (directory.segmentSize != SegmentSize()) {
        return "is damaged: its directory says " + std::to_string(directory.segmentSize) +
               " bytes instead of " + std::to_string(SegmentSize());
    }
    for (std::size_t i = 0; i < RING_COUNT; ++i) {
        if (directory.entryCounts[i] != Nima::Catalogue::kRings[i].entries) {
            return "is damaged: ring " + std::to_string(i) + " has " +
                   std::to_string(directory.entryCounts[i]) + " records instead of " +
                   std::to_string(Nima::Catalogue::kRings[i].entries);
        }
    }
    return {};
}

/// The file lacks the last byte of the last record; only those who map the segment see it.
void ReadRecords(const NimaPost::InputFile& file, RingsView& rings) {
    std::uint64_t offset = RING_DIRECTORY_SIZE;
    for (std::size_t i = 0; i < RING_COUNT; ++i) {
        std::vector<RingBufferData> records(rings.entryCounts[i]);
        auto* const bytes = reinterpret_cast<char*>(records.data());
        const std::size_t size = records.size() * RING_RECORD_SIZE;
        const std::size_t got = file.ReadAt(offset, std::span(bytes, size));
        offset += size;
        const bool last = i + 1 == RING_COUNT;
        const std::size_t whole = (got + (last ? 1 : 0)) / RING_RECORD_SIZE;
        rings.missing += records.size() - whole;
        records.resize(whole);
        records.erase(std::find_if(records.begin(), records.end(),
                                   [](const RingBufferData& record) { return record.timestamp == 0; }),
                      records.end());
        rings.records[i] = std::move(records);
    }
}

} // namespace

void AddMissing(const RingsView& rings, NimaPost::Findings& findings) {
    if (rings.missing > 0) {
        findings.Damage("file-cut", "The rings' segment is cut: it lacks " +
                                        NimaPost::Counted(rings.missing, "record") + ".");
    }
}

std::optional<RingsView> ReadRings(const std::string& directory, std::string& problem) {
    const std::string path = directory + '/' + Nima::Catalogue::kRingSegment.narrow;
    RingsView rings;
    rings.file = OpenExisting(path, Access::kRead, problem);
    if (!rings.file) {
        return std::nullopt;
    }
    const auto file = NimaPost::InputFile::Open(path, problem);
    if (!file) {
        return std::nullopt;
    }
    RingDirectory page{};
    // The library cuts the file one byte short of this page when it looks at another process's rings.
    if (file->ReadAt(0, std::span(reinterpret_cast<char*>(&page), sizeof(page))) <
        offsetof(RingDirectory, unused)) {
        problem = path + ": is cut inside its directory";
        return std::nullopt;
    }
    const std::string damage = DirectoryDamage(page);
    if (!damage.empty()) {
        problem = path + ": " + damage;
        return std::nullopt;
    }
    rings.processId = page.processId;
    std::copy(std::begin(page.entryCounts), std::end(page.entryCounts), rings.entryCounts.begin());
    ReadRecords(*file, rings);
    return rings;
}

} // namespace NimaCtl
