#pragma once

#include "tools/base/Certainty.h"
#include "tools/story/KeptEvent.h"
#include "tools/story/Story.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace NimaPost {

/// How many events there are, and when. Their order does not matter.
struct EventCounts {
    /// Of a tracer, a component, a ring or an event's source.
    struct Count {
        std::uint64_t all = 0;
        std::map<std::string, std::uint64_t> levels;
    };

    /// Takes an event that is no crash.
    void Take(const TimelineEvent& event);

    std::map<std::pair<EventKind, std::string>, Count> names;
    std::map<std::size_t, std::uint64_t> files; ///< events, by the folder's files
    std::optional<std::int64_t> first;
    std::optional<std::int64_t> last;

  private:
    // Kept, so that most events need no memory.
    std::pair<EventKind, std::string> key_;
    std::string level_;
};

/// What a folder's events come to.
struct Statistics : EventCounts {
    /// A time in which nothing was written, though a process ran.
    struct Gap {
        std::int64_t from = 0; ///< lines of which the times are known, apart from what dates cut
        std::int64_t until = 0;
        std::int64_t length = 0;
        std::size_t boot = 0;

        /// Else there are lines in between, and where the silence was, or how many there were, nothing shows.
        bool IsOne() const { return length == until - from; }
    };

    /// How certain a process's first or last time is.
    struct End {
        Certainty certainty = Certainty::Assumed();
        bool overwritten = false;
    };
    struct Ends {
        End first;
        End last;
    };
    /// Of each process, from number 1 on.
    std::vector<Ends> ends;

    /// The first line at ERROR or FATAL before each crash, after the one before: of the same process, or
    /// where that is not known of the same boot.
    std::vector<std::optional<KeptEvent>> firstErrors;
    std::vector<Gap> gaps; ///< the longest of all first

    /// How long it took, at least a second; empty where nothing has a time.
    std::optional<std::int64_t> Length() const;
};

/// Reads the logs once.
Statistics StatisticsOf(const Story& story);

} // namespace NimaPost
