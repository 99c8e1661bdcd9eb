#pragma once

#include "tools/base/Output.h"
#include "tools/crash/CrashLog.h"
#include "tools/story/Story.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace NimaPost {

/// The newest crash log of a folder; null if there is none.
const CrashLog* NewestCrash(const Story& story);

/// Everything that is not a row.
class PageData {
  public:
    PageData(const Story& story, std::int64_t origin) : story_(story), origin_(origin) {}

    Json Failure() const;

    Json Clock() const;

    Json Files() const;

    Json Rings() const;

    Json Sources() const;

    Json SourceKinds() const;

  private:
    static Json Pairs(const std::vector<std::pair<std::string, std::string>>& pairs);

    Json Stacks() const;

    Json Active(const CrashLog& crash) const;

    const Story& story_;
    std::int64_t origin_;
};

} // namespace NimaPost
