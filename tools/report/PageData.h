#pragma once

#include "tools/base/Output.h"
#include "tools/story/Selection.h"
#include "tools/story/Story.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace NimaPost {

/// Everything that is not a row.
class PageData {
  public:
    PageData(const Story& story, std::int64_t origin, Selection& selection)
        : story_(story), origin_(origin), selection_(selection) {}

    /// The oldest first.
    Json Crashes() const;

    Json Clock() const;

    Json Files() const;

    Json Rings() const;

    /// In words, in the order of their numbers from 1.
    Json Processes() const;

    Json Sources() const;

    Json SourceKinds() const;

  private:
    /// The legend of the marks: those for how sure a time is, by number, then that of overwritten lines.
    static Json Marks();
    static Json Pairs(const std::vector<std::pair<std::string, std::string>>& pairs);

    Json CrashJson(const Crash& crash) const;
    std::vector<std::pair<std::string, std::string>> Summary(const Crash& crash) const;
    Json Stacks(const Crash& crash) const;
    Json Active(const Crash& crash) const;

    const Story& story_;
    std::int64_t origin_;
    Selection& selection_;
};

} // namespace NimaPost
