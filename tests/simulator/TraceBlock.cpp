#include "tests/simulator/TraceBlock.h"

#include "catalogue/Files.h"
#include "catalogue/Marks.h"
#include "catalogue/OwnEvents.h"
#include "catalogue/SysTrace.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Simulator {

using namespace Nima::Catalogue;

namespace {

/// Claims that other threads make at the most while one more record is being written.
constexpr std::uint64_t kMargin = 256;
constexpr std::uint32_t kAll = 0xFFFFFFFF;

template <class Struct>
void Append(std::string& bytes, const Struct& data) {
    const std::size_t before = bytes.size();
    bytes.resize(before + sizeof(data));
    std::memcpy(bytes.data() + before, &data, sizeof(data));
}

} // namespace

TraceBlock::TraceBlock(World& world, std::uint32_t entries) : world_(world), entries_(entries) {
    std::memcpy(header_.magic, kSysTraceMagic, sizeof(header_.magic));
    header_.headerSize = SYSTRACE_HEADER_SIZE;
    header_.writeIndex = kAll;
    header_.entryCount = entries;
    header_.bufferSize = entries * static_cast<std::uint32_t>(sizeof(SysTraceEntry)) + SYSTRACE_HEADER_SIZE;
    header_.version = SYSTRACE_VERSION;
    header_.wrapCount = -1;
    header_.flags = SYSTRACE_FLAG_FORMATTED | SYSTRACE_FLAG_THREAD_RECORDS;
    header_.timerWord1 = 1'000'000;
    header_.timerWord2 = kAll;
    header_.state = kTracing;
    std::fill(header_.liveFilter, header_.liveFilter + SYSTRACE_FILTER_WORDS / 2, kAll);
    header_.indexMask = entries - 1;
}

std::uint32_t TraceBlock::Claim() {
    ++claims_;
    const std::uint32_t slot = ++header_.writeIndex & header_.indexMask;
    header_.wrapCount += slot == 0;
    return slot;
}

Output TraceBlock::Writer(Process& process) {
    return [this, &process](std::uint32_t thread) {
        // No writer of a real block is held up for a whole round.
        if (!underWay_.empty() && claims_ - underWay_.front()->first + kMargin > entries_.size()) {
            world_.device.Settle(0);
        }
        Random& random = world_.random;
        auto draft = std::make_shared<Draft>();
        draft->process = process.Number();
        draft->thread = thread;
        // Every thread has events of its own, so that records which are written at once can be told apart.
        const auto arguments = static_cast<std::uint32_t>(random.Small(2, 4));
        const auto component = static_cast<std::uint32_t>(1 + process.Number() % 100);
        draft->id = component << SYSTRACE_COMPONENT_SHIFT | (thread >> 12 & 0xFFFF) << 2 | (arguments - 1);
        draft->values.assign(arguments, 0);
        for (std::uint32_t& value : draft->values) {
            value = random.Word() & 0xFFF;
        }
        draft->values.push_back(thread);
        draft->first = claims_;
        underWay_.push_back(draft);
        entries_[Claim()].id = draft->id; // its value comes with the stamp
        Go(process, draft);
    };
}

void TraceBlock::Go(Process& process, const DraftOf& draft) {
    Device& device = world_.device;
    const auto slotOfFirst = static_cast<std::size_t>(draft->first % entries_.size());
    if (!draft->stamped) {
        draft->stamped = true;
        process.Delayed(device.StoreDelay(), draft->thread, [this, &process, draft, slotOfFirst] {
            Stamp stamp = world_.StampNow(Kind::kBinary, process.Number(), draft->thread);
            entries_[slotOfFirst].value = static_cast<std::uint32_t>(CounterAt(stamp.monotonic));
            draft->serial = world_.truth.Add(std::move(stamp));
            draft->values.front() = draft->serial;
            world_.device.Hold(world_.random.Between(50, 400));
            Go(process, draft);
        });
        return;
    }
    if (draft->stored == draft->values.size()) {
        done_[draft->serial] = draft->first;
        std::erase(underWay_, draft);
        return;
    }
    const std::uint32_t slot = Claim();
    process.Delayed(world_.random.OneIn(4) ? device.StoreDelay() : 0, draft->thread,
                    [this, &process, draft, slot] {
                        entries_[slot] = {draft->id | SYSTRACE_CONTINUATION, draft->values[draft->stored++]};
                        Go(process, draft);
                    });
}

void TraceBlock::Own(std::uint32_t thread, std::uint32_t event) {
    entries_[Claim()] = {event, static_cast<std::uint32_t>(CounterAt(world_.device.Now()))};
    entries_[Claim()] = {event | SYSTRACE_CONTINUATION, thread};
}

bool TraceBlock::IsWriting(const Process& process) const {
    return std::any_of(underWay_.begin(), underWay_.end(),
                       [&](const DraftOf& draft) { return draft->process == process.Number(); });
}

bool TraceBlock::Kill(const Process& process) {
    return std::erase_if(underWay_,
                         [&](const DraftOf& draft) { return draft->process == process.Number(); }) > 0;
}

std::set<std::uint64_t> TraceBlock::Whole() const {
    std::set<std::uint64_t> whole;
    for (const auto& [serial, first] : done_) {
        if (first + entries_.size() >= claims_) {
            whole.insert(serial);
        }
    }
    return whole;
}

std::string TraceBlock::Bytes() const {
    std::string bytes;
    Append(bytes, header_);
    for (const SysTraceEntry& entry : entries_) {
        Append(bytes, entry);
    }
    return bytes;
}

void TraceBlock::StoreSegment() {
    // The library's segment is larger than its block.
    world_.files.Put(kSysTraceSegment.narrow,
                     {Bytes() + std::string(4096, '\0'), world_.device.Wall(), Whole()});
}

void TraceBlock::Dump(std::uint32_t thread) {
    const std::string name = kSysTraceDump.narrow;
    Own(thread, IdOf(OwnTraceEvent::kFileDumpStarts));
    std::swap(header_.liveFilter, header_.savedFilter);
    header_.savedState = std::exchange(header_.state, std::uint32_t{kCapturing});
    world_.files.Rename(name, name + ".1");
    SysTraceDumpHeader front{};
    front.size = sizeof(front);
    front.word1 = 1;
    front.word2 = 2;
    front.bufferSize = header_.bufferSize;
    front.magic = SYSTRACE_DUMP_MAGIC;
    std::string bytes;
    Append(bytes, front);
    bytes += Bytes();
    if (header_.wrapCount == 0) {
        bytes.resize(sizeof(front) + sizeof(header_) +
                     (header_.writeIndex + std::size_t{1}) * sizeof(SysTraceEntry));
    }
    world_.files.Put(name, {std::move(bytes), world_.device.Wall(), Whole()});
    header_.state = std::exchange(header_.savedState, std::uint32_t{kNoCapture});
    std::swap(header_.liveFilter, header_.savedFilter);
    world_.device.Hold(world_.random.Between(kMillisecond, 30 * kMillisecond));
    Own(thread, IdOf(OwnTraceEvent::kFileDumpEnds));
}

} // namespace Simulator
