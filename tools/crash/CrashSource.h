#pragma once

#include "tools/axis/Source.h"
#include "tools/crash/CrashLog.h"
#include "tools/rings/RingSource.h"

#include <optional>

namespace NimaPost {

/// Crash logs in a folder. Their rings go to those of the folder.
class CrashSource : public Source {
  public:
    explicit CrashSource(SourceSet& set);

    void Read(FolderFile& file, InputFile& input) override;
    void Date(Axis& axis) override;

    /// The newest crash log; null if none could be read.
    const CrashLog* Newest() const { return newest_ ? &*newest_ : nullptr; }

  private:
    RingSource& rings_;
    std::optional<CrashLog> newest_;
};

} // namespace NimaPost
