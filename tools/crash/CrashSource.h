#pragma once

#include "tools/axis/Source.h"
#include "tools/crash/CrashLog.h"

namespace NimaPost {

/// Crash logs in a folder. Their rings go to those of the folder.
class CrashSource : public FileSource<CrashLog, Stage::kCrashes, EventKind::kRecord> {
  public:
    using FileSource::FileSource;

    void Date(Axis& axis) override;

    /// The newest crash log; null if none could be read.
    const CrashLog* Newest() const;

  private:
    std::optional<CrashLog> ReadContent(FolderFile& file, InputFile& input) override;
};

} // namespace NimaPost
