#pragma once

#include "tools/axis/TimelineEvent.h"
#include "tools/names/Names.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace NimaPost {

/// The threads of a story's events, numbered from 0 in the order in which they appear. One without a name in
/// the dictionary goes by the first tracer that it used.
class Threads {
  public:
    explicit Threads(const Names& names) : names_(names) {}

    /// The number of the event's thread; empty where the event has none.
    std::optional<std::size_t> NumberOf(const TimelineEvent& event);

    std::size_t Count() const { return threads_.size(); }
    /// In the order of their ids. The name is UTF-8, and empty where nothing gives one.
    void ForEach(const std::function<void(std::size_t number, std::uint32_t id, const std::string& name)>&
                     visitor) const;

  private:
    struct Thread {
        std::size_t number;
        std::string tracer;
    };

    const Names& names_;
    std::map<std::uint32_t, Thread> threads_;
};

} // namespace NimaPost
