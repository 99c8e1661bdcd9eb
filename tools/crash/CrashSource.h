#pragma once

#include "tools/axis/Source.h"
#include "tools/crash/CrashLog.h"
#include "tools/crash/CrashOrder.h"

#include <string>

namespace NimaPost {

/// A crash log and its place among those of the folder.
struct PlacedCrash {
    std::string file;
    CrashLog log;
    std::optional<std::int64_t> time; ///< on the axis
    Certainty certainty = Certainty::Assumed();
    bool byLog = false; ///< it is on the clock of a process of the logs, else by the head's own date
    CrashEvidence after = CrashEvidence::kNothing;
    /// The only process that may have written it, as far as the logs tell.
    std::optional<std::size_t> process;
};

/// Crash logs in a folder, in the order in which they were written once they are dated. Their rings go to
/// those of the folder.
class CrashSource : public FileSource<PlacedCrash, Stage::kCrashes, EventKind::kRecord> {
  public:
    using FileSource::FileSource;

    void Announce(Processes& processes) const override;
    void Date(Axis& axis) override;

  private:
    std::optional<PlacedCrash> ReadContent(FolderFile& file, InputFile& input) override;

    void PutInOrder();
    std::vector<std::pair<std::size_t, Tie>> TieHeads(Axis& axis) const;
    void StateOrder(Axis& axis) const;
};

} // namespace NimaPost
