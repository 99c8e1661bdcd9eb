#pragma once

#include "tools/base/Pattern.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// Which messages hold every text that is wanted and none that is not. A message may have several lines,
/// which come one after the other.
class TextFilter {
  public:
    TextFilter() = default;
    TextFilter(const TextFilter&) = delete;
    TextFilter& operator=(const TextFilter&) = delete;

    void Want(Pattern pattern) { wanted_.push_back({std::move(pattern), false}); }
    void Refuse(Pattern pattern) { refused_.push_back(std::move(pattern)); }
    bool Empty() const { return wanted_.empty() && refused_.empty(); }

    enum class Fate : unsigned char {
        kShow,     ///< with all that is left of the message
        kHide,     ///< with all that is left of it
        kMissing,  ///< hidden unless a further line holds what is missing
        kUnlessBad ///< shown unless a further line holds what is refused
    };
    Fate Begin(std::string_view line);
    /// Before a first line that continues a message of which the begin is not there.
    void Restart();
    Fate Continue(std::string_view line);

    /// Of a message of one line.
    bool Admits(std::string_view line) {
        const Fate fate = Begin(line);
        return fate == Fate::kShow || fate == Fate::kUnlessBad;
    }

    /// What every message that is shown holds, as far as it can be looked for by itself: where a search that
    /// is left out could be one that goes on for too long, and is told of, none is named.
    std::vector<const Pattern*> Needed() const;

    /// How many searches went on for too long and count as if nothing were found.
    std::uint64_t GivenUp() const;

  private:
    struct Wanted {
        Pattern pattern;
        bool found;
    };

    std::vector<Wanted> wanted_;
    std::vector<Pattern> refused_;
    Fate fate_ = Fate::kMissing; ///< of what comes before the first message as well
};

} // namespace NimaPost
