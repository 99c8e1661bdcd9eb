#pragma once

#include "tools/axis/TimelineEvent.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace NimaPost {

/// An event with texts of its own.
class KeptEvent {
  public:
    KeptEvent() = default;
    explicit KeptEvent(const TimelineEvent& event) { Assign(event); }

    void Assign(const TimelineEvent& event) {
        event_ = event;
        texts_[0] = event.level;
        texts_[1] = event.name;
        texts_[2] = event.text;
        texts_[3] = event.mark;
        texts_[4] = event.line;
        arguments_.assign(event.arguments.begin(), event.arguments.end());
    }

    /// Holds as long as the object stays where it is.
    TimelineEvent Get() const {
        TimelineEvent event = event_;
        event.level = texts_[0];
        event.name = texts_[1];
        event.text = texts_[2];
        event.mark = texts_[3];
        event.line = texts_[4];
        event.arguments = arguments_;
        return event;
    }
    std::optional<std::int64_t> Time() const { return event_.time; }

  private:
    TimelineEvent event_;
    std::array<std::string, 5> texts_;
    std::vector<std::uint32_t> arguments_;
};

} // namespace NimaPost
