#include "tools/crash/CrashSource.h"

#include "tools/rings/RingSource.h"

namespace NimaPost {

std::optional<CrashLog> CrashSource::ReadContent(FolderFile& file, InputFile& input) {
    auto log = ReadCrashLog(input.ReadAll(kMostTextBytes), file.findings);
    if (log) {
        log->rings.date = log->date;
        Set().Get<RingSource>().Take(file, PlacedRings(log->rings));
    }
    return log;
}

void CrashSource::Date(Axis& axis) {
    const CrashLog* const newest = Newest();
    if (newest != nullptr && newest->ticks && newest->date) {
        const Tie tie = axis.TieOf(*newest->ticks, *newest->date);
        axis.SetNewest(tie);
        axis.SetCrash(tie.time);
        axis.SetWall();
    }
}

const CrashLog* CrashSource::Newest() const {
    const auto second = [](const Held& held) {
        return held.content.date ? std::optional(held.content.date->second) : std::nullopt;
    };
    const auto newest = std::max_element(All().begin(), All().end(),
                                         [&](const Held& a, const Held& b) { return second(a) < second(b); });
    return newest != All().end() ? &newest->content : nullptr;
}

} // namespace NimaPost
