#include "tests/simulator/RingSegment.h"

#include "catalogue/Files.h"
#include "catalogue/Marks.h"
#include "catalogue/OwnEvents.h"
#include "catalogue/Rings.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace Simulator {

using namespace Nima::Catalogue;

namespace {

constexpr std::size_t kSegmentSize = 503'808;
constexpr std::size_t kUsed = 3;

} // namespace

RingSegment::RingSegment(World& world) : world_(world) {
    directory_.segmentSize = kSegmentSize;
    for (std::size_t i = 0; i < kRings.size(); ++i) {
        directory_.entryCounts[i] = kRings[i].entries;
        rings_.emplace_back(kRings[i].entries);
    }
    while (used_.size() < kUsed) {
        const auto ring = static_cast<std::size_t>(world.random.Below(RING_COUNT));
        // The library's own ring holds no events of hosts, and large ones hardly fill.
        if (ring != kOwnRing && kRings[ring].entries <= 512 &&
            std::count(used_.begin(), used_.end(), ring) == 0) {
            used_.push_back(ring);
        }
    }
}

RingBufferData& RingSegment::SlotOf(std::size_t ring, std::uint32_t index) {
    return rings_[ring][index & (kRings[ring].entries - 1)];
}

Output RingSegment::LayOut(Process& process) {
    directory_.processId = static_cast<std::uint32_t>(1000 + process.Number());
    auto next = std::make_shared<Indices>(kRings.size());
    nextOwn_ = 0;
    return [this, &process, next](std::uint32_t thread) {
        const std::size_t ring = used_[static_cast<std::size_t>(world_.random.Below(kUsed))];
        Stamp stamp = world_.StampNow(Kind::kRing, process.Number(), thread);
        RingBufferData record{CounterAt(stamp.monotonic), thread, {}};
        record.words[0] = static_cast<std::uint32_t>(world_.random.Below(40));
        record.words[1] = world_.truth.Add(std::move(stamp));
        record.words[2] = world_.random.Word();
        process.Delayed(world_.device.StoreDelay(), thread,
                        [this, ring, next, record] { SlotOf(ring, (*next)[ring]++) = record; });
    };
}

void RingSegment::Own(std::uint32_t thread) {
    RingBufferData record{CounterAt(world_.device.Now()), thread, {}};
    record.words[0] = CodeOf(OwnRingEvent::kModuleListingStarts);
    SlotOf(kOwnRing, nextOwn_++) = record;
}

void RingSegment::Clear() {
    for (auto& ring : rings_) {
        std::fill(ring.begin(), ring.end(), RingBufferData{});
    }
    nextOwn_ = 0;
}

void RingSegment::StoreSegment() {
    std::string bytes(kSegmentSize, '\0');
    std::memcpy(bytes.data(), &directory_, sizeof(directory_));
    std::size_t at = sizeof(directory_);
    std::set<std::uint64_t> records;
    for (const auto& ring : rings_) {
        const std::size_t size = ring.size() * sizeof(RingBufferData);
        std::memcpy(bytes.data() + at, ring.data(), size);
        at += size;
        for (const RingBufferData& record : ring) {
            records.insert(record.words[1]);
        }
    }
    bytes.pop_back(); // the file is a byte shorter than the mapping
    records.erase(0); // of empty slots
    world_.files.Put(kRingSegment.narrow, {std::move(bytes), world_.device.Wall(), std::move(records)});
}

std::string RingSegment::Text(std::set<std::uint64_t>& records) const {
    std::string text = std::string("\r\n") + kRingDumpBegin + "\r\n\r\n";
    for (std::size_t ring = 0; ring < rings_.size(); ++ring) {
        text += kRingHeadingBegin + std::string(kRings[ring].name) + kRingHeadingEnd + "\r\n";
        for (const RingBufferData& record : rings_[ring]) {
            if (record.timestamp == 0) {
                break;
            }
            const auto* w = record.words;
            char line[128];
            std::snprintf(line, sizeof(line), "%019lld 0x%08x 0x%08x : 0x%08x 0x%08x 0x%08x 0x%08x\r\n",
                          static_cast<long long>(record.timestamp), static_cast<unsigned>(record.threadId),
                          static_cast<unsigned>(w[0]), static_cast<unsigned>(w[1]),
                          static_cast<unsigned>(w[2]), static_cast<unsigned>(w[3]),
                          static_cast<unsigned>(w[4]));
            text += line;
            records.insert(w[1]);
        }
    }
    records.erase(0); // of what bears none
    return text + "\r\n" + kRingDumpEnd + "\r\n";
}

} // namespace Simulator
