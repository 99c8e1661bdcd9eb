#include "ctl/block/Snapshot.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace NimaCtl {

namespace {

constexpr std::uint32_t kPiece = 4096;
constexpr int kAttempts = 10;
/// With more blank slots than these, another attempt is worthwhile.
constexpr std::uint32_t kFewBlanks = kEntries / 16;

template <typename Struct>
std::string_view BytesOf(const Struct& value) {
    return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

/// Copies from the oldest slot on, which writers reach first. `header` was read before. After each piece the
/// index tells which of its slots may have been overwritten before they were copied.
bool Copy(const TraceBlock& block, Snapshot& snapshot) {
    const std::uint32_t before = snapshot.header.writeIndex;
    const std::uint32_t used = UsedEntries(snapshot.header);
    snapshot.entries.assign(used, {});
    snapshot.blanked = 0;
    for (std::uint32_t done = 0; done < used; done += kPiece) {
        const std::uint32_t count = std::min(kPiece, used - done);
        const std::uint32_t first = before + 1 - used + done;
        const auto piece = block.CopyEntries(first, count);
        const std::uint32_t claimed = Load(block.Header().writeIndex) - before;
        const auto wraps = static_cast<std::int32_t>(Load(block.Header().wrapCount));
        if (claimed > 1U << 31 || wraps < snapshot.header.wrapCount) {
            return false; // cleared
        }
        // What was claimed since reaches the oldest slots only once all others are in use.
        const std::uint32_t free = kEntries - used;
        const std::uint32_t overwritten = claimed > free + done ? std::min(claimed - free - done, count) : 0;
        snapshot.blanked += overwritten;
        for (std::uint32_t i = overwritten; i < count; ++i) {
            snapshot.entries[(first + i) & (kEntries - 1)] = piece[i];
        }
    }
    return true;
}

} // namespace

std::optional<Snapshot> TakeSnapshot(const TraceBlock& block, std::string& problem) {
    std::optional<Snapshot> best;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        Snapshot snapshot;
        snapshot.header = block.CopyHeader();
        const std::uint32_t rounds = Rounds(snapshot.header);
        if (!DamageOf(snapshot.header).empty() || (rounds > 0 && !Copy(block, snapshot))) {
            continue;
        }
        // Of a writer that has not counted yet. Readers go by the count.
        snapshot.header.wrapCount = static_cast<std::int32_t>(rounds) - 1;
        if (block.File().Lost()) {
            problem = block.File().LostText();
            return std::nullopt;
        }
        if (!best || snapshot.blanked < best->blanked) {
            best = std::move(snapshot);
        }
        // Busy writers may have gone round while this program had to wait for the processor.
        if (best->blanked <= kFewBlanks) {
            break;
        }
    }
    if (!best) {
        const std::string damage = DamageOf(block.CopyHeader());
        problem = damage.empty() ? "the trace was cleared again and again while it was copied"
                                 : block.File().Path() + ": " + damage;
    }
    return best;
}

void WriteDump(NimaPost::Output& out, const Snapshot& snapshot) {
    SysTraceDumpHeader header{};
    header.size = sizeof(header);
    header.word1 = 1;
    header.word2 = 2;
    header.bufferSize = snapshot.header.bufferSize;
    header.magic = SYSTRACE_DUMP_MAGIC;
    out.Write(BytesOf(header));
    out.Write(BytesOf(snapshot.header));
    out.Write({reinterpret_cast<const char*>(snapshot.entries.data()),
               snapshot.entries.size() * sizeof(SysTraceEntry)});
    if (snapshot.header.wrapCount != 0) {
        out.Write(std::string((kEntries - snapshot.entries.size()) * sizeof(SysTraceEntry), '\0'));
    }
}

} // namespace NimaCtl
