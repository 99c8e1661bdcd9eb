#pragma once

#include "tools/axis/TimelineEvent.h"
#include "tools/names/Names.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace NimaPost {

/// The threads of a story's events, numbered from 0 in the order in which they appear. Processes may use the
/// same ids. A thread without a name in the dictionary goes by the first tracer that it used.
class Threads {
  public:
    explicit Threads(const Names& names) : names_(names) {}

    /// The number of the event's thread; empty where the event has none.
    std::optional<std::size_t> NumberOf(const TimelineEvent& event);

    std::size_t Count() const { return threads_.size(); }
    struct Thread {
        std::size_t number = 0;
        std::optional<std::size_t> process;
        std::optional<std::size_t> boot;
        std::uint32_t id = 0;
        std::string name; ///< UTF-8; empty where nothing gives one
    };
    /// In the order of their processes and ids.
    void ForEach(const std::function<void(const Thread& thread)>& visitor) const;

  private:
    const Names& names_;
    std::map<std::pair<std::optional<std::size_t>, std::uint32_t>, Thread> threads_;
};

} // namespace NimaPost
