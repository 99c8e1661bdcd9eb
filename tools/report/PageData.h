#pragma once

#include "tools/base/Output.h"
#include "tools/story/Selection.h"
#include "tools/story/Story.h"
#include "tools/symbols/Resolution.h"

#include <cstdint>
#include <map>
#include <optional>
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
/// The row of each crash; empty for one that is not among the rows.
using CrashRows = std::vector<std::optional<std::uint64_t>>;

/// Everything that is not a row.
class PageData {
  public:
    /// All but the origin must outlive it.
    PageData(const Story& story, std::int64_t origin, const Selection& selection, const StackSymbols& symbols,
             const CrashRows& crashRows)
        : story_(story), origin_(origin), selection_(selection), symbols_(symbols), crashRows_(crashRows) {}

    /// The oldest first.
    Json Crashes() const;

    Json Clock() const;

    Json Files() const;

    Json Rings() const;

    /// In the order of their numbers from 1.
    Json Processes() const;
    Json Boots() const;

    Json Sources() const;

    Json SourceKinds() const;

  private:
    /// The legend of the marks: those for how sure a time is, by number, then that of overwritten lines.
    static Json Marks();
    static Json Pairs(const std::vector<std::pair<std::string, std::string>>& pairs);

    Json Moment(const std::optional<std::int64_t>& time) const;
    Json CrashJson(const Crash& crash, const std::optional<std::uint64_t>& row) const;
    std::vector<std::pair<std::string, std::string>> Summary(const Crash& crash) const;
    Json Stacks(const Crash& crash) const;
    Json Active(const Crash& crash) const;

    const Story& story_;
    std::int64_t origin_;
    const Selection& selection_;
    const StackSymbols& symbols_;
    const CrashRows& crashRows_;
};

} // namespace NimaPost
