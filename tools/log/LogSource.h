#pragma once

#include "tools/axis/Source.h"
#include "tools/log/LogSet.h"

#include <cstdint>
#include <map>
#include <vector>

namespace NimaPost {

/// Text logs in a folder, the memory queue's among them.
class LogSource : public Source {
  public:
    explicit LogSource(SourceSet& set);

    void Read(FolderFile& file, InputFile& input) override;
    void Date(Axis& axis) override;
    void Place(Axis& axis) override;
    bool ForEach(const EventVisitor& visitor) const override;

  private:
    void NoteReadProblems() const;
    bool IsUndated(const LogPart& part) const;

    LogSet logs_;
    std::vector<FolderFile*> files_;                  ///< of each of the set's files
    std::map<std::size_t, std::int64_t> undatedRuns_; ///< where runs without a date were put
};

} // namespace NimaPost
