#pragma once

#include "tools/base/Output.h"
#include "tools/story/Selection.h"
#include "tools/story/Story.h"
#include "tools/symbols/Resolution.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace NimaPost {

/// What symbols say about a stack trace, and what that rests on.
struct ResolvedStack {
    Resolution resolution;
    std::vector<Finding> statement;
};
/// By the file of the stack trace, in the folder's files.
using StackSymbols = std::map<std::size_t, ResolvedStack>;

/// Everything that is not a row.
class PageData {
  public:
    /// `story`, `selection` and `symbols` must outlive it.
    PageData(const Story& story, std::int64_t origin, Selection& selection, const StackSymbols& symbols)
        : story_(story), origin_(origin), selection_(selection), symbols_(symbols) {}

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
    const StackSymbols& symbols_;
};

} // namespace NimaPost
