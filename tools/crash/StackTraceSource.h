#pragma once

#include "tools/axis/Source.h"
#include "tools/crash/StackTrace.h"

#include <string>
#include <vector>

namespace NimaPost {

/// Stack-trace files in a folder. They have no place in time.
class StackTraceSource : public Source {
  public:
    explicit StackTraceSource(SourceSet& set);

    void Read(FolderFile& file, InputFile& input) override;

    struct Named {
        std::string file;
        StackTrace stack;
    };
    const std::vector<Named>& All() const { return stacks_; }

  private:
    std::vector<Named> stacks_;
};

} // namespace NimaPost
