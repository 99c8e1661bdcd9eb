#pragma once

#include "tools/base/Findings.h"
#include "tools/commands/InputOptions.h"
#include "tools/story/Statistics.h"
#include "tools/story/Story.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace NimaPost {

/// What a summary tells, on a screen or as JSON.
struct SummaryFacts {
    /// Files and events of each kind of file.
    struct Kind {
        std::string kind;
        std::size_t files = 0;
        std::uint64_t bytes = 0;
        std::uint64_t events = 0;
    };
    using Name = std::pair<std::pair<EventKind, std::string>, Statistics::Count>;

    const DeviceInput& input;
    const Findings& inherited; ///< of what the device came in
    const Story& story;
    Statistics statistics;

    /// In the order in which the kinds appear.
    std::vector<Kind> Kinds() const;
    /// The busiest first.
    std::vector<Name> Names() const;
    double PerMinute(std::uint64_t count) const;
    /// What to type next.
    std::vector<std::string> NextCommands() const;
    Findings AllFindings() const { return Joined(inherited, story.AllFindings()); }
    bool HasWall() const { return story.Time().HasWall(); }
};

} // namespace NimaPost
