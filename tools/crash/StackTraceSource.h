#pragma once

#include "tools/axis/Source.h"
#include "tools/crash/StackTrace.h"

namespace NimaPost {

/// Stack-trace files in a folder. They have no place in time.
class StackTraceSource : public FileSource<StackTrace, Stage::kCrashes, EventKind::kRecord> {
    using FileSource::FileSource;
    std::optional<StackTrace> ReadContent(FolderFile& file, InputFile& input) override;
};

} // namespace NimaPost
