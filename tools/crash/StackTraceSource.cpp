#include "tools/crash/StackTraceSource.h"

namespace NimaPost {

StackTraceSource::StackTraceSource(SourceSet& /*set*/) : Source(Stage::kCrashes, EventKind::kRecord) {}

void StackTraceSource::Read(FolderFile& file, InputFile& input) {
    stacks_.push_back({file.name, ReadStackTrace(input.ReadAll(kMostTextBytes), file.findings)});
}

} // namespace NimaPost
