#pragma once

#include "tools/axis/TimelineEvent.h"
#include "tools/base/Json.h"
#include "tools/base/Output.h"
#include "tools/names/Names.h"
#include "tools/report/RowBlock.h"
#include "tools/story/Threads.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// Numbers for texts that occur again and again.
class TextIndex {
  public:
    /// From 1; 0 for an empty text.
    std::uint64_t Of(std::string_view text);
    Json Texts() const { return texts_; }

  private:
    std::map<std::string, std::size_t, std::less<>> numbers_;
    std::vector<std::string> texts_;
};

/// Gathers the newest of the events, which come in order, and holds few more than asked for.
class Rows {
  public:
    Rows(std::size_t most, const Names& dictionary) : most_(most), threads_(dictionary) {}

    void Take(const TimelineEvent& event);
    /// To be called once, when no event follows.
    void Finish();

    std::size_t Count() const { return count_; }
    std::uint64_t Omitted() const { return taken_ - count_; }
    std::optional<std::int64_t> FirstTime() const;
    /// The row of an event by its place among all that were taken; empty where it was left out.
    std::optional<std::uint64_t> RowOf(std::uint64_t event) const;
    /// How many events were taken so far.
    std::uint64_t Taken() const { return taken_; }

    Json ThreadsJson() const;
    Json LevelsJson() const { return levels_.Texts(); }
    Json NamesJson() const { return names_.Texts(); }

    /// As elements of the page; times count from the origin.
    void Write(Output& out, std::int64_t origin) const;

  private:
    /// "level 2" becomes "2"; a name of the dictionary stays as it is.
    static std::string_view LevelDigit(std::string_view level);

    std::size_t most_;
    std::deque<RowBlock> blocks_;
    Threads threads_;
    TextIndex levels_;
    TextIndex names_;
    std::uint64_t taken_ = 0;
    std::size_t count_ = 0;
};

} // namespace NimaPost
