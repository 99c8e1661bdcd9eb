#include "ctl/block/TraceBlock.h"

#include "catalogue/Files.h"
#include "catalogue/Marks.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

namespace NimaCtl {

namespace {

bool Any(const Filter& filter) {
    return std::any_of(filter.begin(), filter.end(), [](auto word) { return word != 0; });
}

constexpr int kReadings = 1000;
/// Looks at a header that seems damaged, a millisecond apart, before it is refused.
constexpr int kLooks = 30;

/// The count of a writer that has claimed the first slot may not be there yet, and never comes if the writer
/// was killed there. So the index may be one round ahead.
bool IndicesFit(const SysTraceHeader& header) {
    constexpr std::uint32_t kNone = 0xFFFFFFFF;
    return header.wrapCount >= -1 &&
           ((header.writeIndex == kNone && header.wrapCount == -1) ||
            header.writeIndex / kEntries <= static_cast<std::uint32_t>(header.wrapCount) + 1);
}

} // namespace

std::string DamageOf(const SysTraceHeader& header) {
    if ((header.flags & SYSTRACE_FLAG_FORMATTED) == 0) {
        return "is not formatted yet; the first process that traces formats it";
    }
    if (std::memcmp(header.magic, Nima::Catalogue::kSysTraceMagic, sizeof(header.magic)) != 0) {
        return "is damaged: it does not begin with \"strc\"";
    }
    if (header.version != SYSTRACE_VERSION || header.headerSize != SYSTRACE_HEADER_SIZE) {
        return "has version " + std::to_string(header.version) + " and a header of " +
               std::to_string(header.headerSize) + " bytes, which this program does not know";
    }
    if (header.entryCount != kEntries || header.indexMask != kEntries - 1 ||
        header.bufferSize != kBlockBytes) {
        return "is damaged: entry count " + std::to_string(header.entryCount) + ", index mask " +
               std::to_string(header.indexMask) + ", buffer size " + std::to_string(header.bufferSize) +
               " instead of " + std::to_string(kEntries) + ", " + std::to_string(kEntries - 1) + ", " +
               std::to_string(kBlockBytes);
    }
    if (!IndicesFit(header)) {
        return "is damaged: wrap count " + std::to_string(header.wrapCount) + " and write index " +
               std::to_string(header.writeIndex) + " do not fit together";
    }
    return {};
}

std::uint32_t Rounds(const SysTraceHeader& header) {
    const auto counted = static_cast<std::uint32_t>(header.wrapCount) + 1;
    return header.writeIndex + 1 == 0 ? counted : std::max(counted, header.writeIndex / kEntries + 1);
}

std::uint32_t UsedEntries(const SysTraceHeader& header) {
    const std::uint32_t rounds = Rounds(header);
    return rounds == 0 ? 0 : rounds == 1 ? header.writeIndex + 1 : kEntries;
}

std::optional<TraceBlock> TraceBlock::Open(const std::string& directory, Access access,
                                           std::string& problem) {
    const std::string path = directory + '/' + Nima::Catalogue::kSysTraceSegment.narrow;
    auto segment = Segment::Map(path, kBlockBytes, access, problem);
    if (!segment) {
        return std::nullopt;
    }
    TraceBlock block(std::move(*segment));
    std::string damage = DamageOf(block.CopyHeader());
    for (int look = 1; look < kLooks && !damage.empty(); ++look) {
        // Between two steps of a process that formats it, clears it or begins a round.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        damage = DamageOf(block.CopyHeader());
    }
    if (!damage.empty()) {
        problem = path + ": " + damage;
        return std::nullopt;
    }
    return block;
}

SysTraceHeader TraceBlock::CopyHeader() const {
    constexpr std::size_t kWords = sizeof(SysTraceHeader) / sizeof(std::uint32_t);
    std::array<std::uint32_t, kWords> words{};
    auto* const from = static_cast<std::uint32_t*>(segment_.Bytes());
    for (std::size_t i = 0; i < words.size(); ++i) {
        words[i] = Load(from[i]);
    }
    SysTraceHeader copy{};
    std::memcpy(&copy, words.data(), sizeof(copy));
    return copy;
}

std::vector<SysTraceEntry> TraceBlock::CopyEntries(std::uint32_t firstSlot, std::uint32_t count) const {
    std::vector<SysTraceEntry> copy(count);
    SysTraceEntry* const entries = Entries();
    for (std::uint32_t i = 0; i < count; ++i) {
        SysTraceEntry& entry = entries[(firstSlot + i) & (kEntries - 1)];
        copy[i] = {Load(entry.id), Load(entry.value)};
    }
    return copy;
}

bool Filters::SetAside() const {
    for (std::size_t i = 0; i < live.size(); ++i) {
        if ((saved[i] & ~live[i]) != 0) {
            return true;
        }
    }
    return false;
}

Filtering Filters::State() const {
    if (SetAside()) {
        return Any(live) ? Filtering::kPartly : Filtering::kCleared;
    }
    return Any(live) ? Filtering::kOn : Filtering::kOff;
}

Filter Filters::Effective() const {
    Filter filter = live;
    for (std::size_t i = 0; i < filter.size() && SetAside(); ++i) {
        filter[i] |= saved[i];
    }
    return filter;
}

Filters TraceBlock::ReadFilters() const {
    const auto read = [this] {
        return Filters{LoadFilter(Header().liveFilter), LoadFilter(Header().savedFilter)};
    };
    Filters filters = read();
    for (int i = 0; i < kReadings; ++i) {
        const Filters again = read();
        if (again == filters) {
            break;
        }
        filters = again;
    }
    return filters;
}

} // namespace NimaCtl
