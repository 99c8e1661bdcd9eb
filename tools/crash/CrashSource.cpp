#include "tools/crash/CrashSource.h"

#include <utility>

namespace NimaPost {

CrashSource::CrashSource(SourceSet& set)
    : Source(Stage::kCrashes, EventKind::kRecord), rings_(set.Get<RingSource>()) {}

void CrashSource::Read(FolderFile& file, InputFile& input) {
    auto log = ReadCrashLog(input.ReadAll(kMostTextBytes), file.findings);
    file.unusable = !log;
    if (!log) {
        return;
    }
    log->rings.date = log->date;
    rings_.Take(file.index, log->rings);
    const bool newer =
        !newest_ || (log->date && (!newest_->date || newest_->date->second < log->date->second));
    if (newer) {
        newest_ = std::move(*log);
    }
}

void CrashSource::Date(Axis& axis) {
    if (newest_ && newest_->ticks && newest_->date) {
        const Tie tie = axis.TieOf(*newest_->ticks, *newest_->date);
        axis.SetNewest(tie);
        axis.SetCrash(tie.time);
        axis.SetWall();
    }
}

} // namespace NimaPost
