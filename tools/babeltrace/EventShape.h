#pragma once

#include "tools/babeltrace/ClockedTraces.h"
#include "tools/babeltrace/Shared.h"

#include <array>
#include <cstdint>
#include <string_view>

namespace NimaPost {

/// What babeltrace is told of the events of one device: their clock and their fields.
class EventShape {
  public:
    struct Clock {
        std::int64_t base = 0; ///< nanoseconds, of the value 0; a whole number of seconds
        bool absolute = false; ///< since 1970
        std::string_view name; ///< tells clocks apart that are not absolute
    };
    EventShape(bt_self_component* component, const Clock& clock);

    bt_trace_class* TraceClass() const { return traceClass_.get(); }
    bt_stream_class* StreamClass() const { return streamClass_.get(); }
    const bt_event_class* EventClass(std::size_t kind) const { return eventClasses_[kind].get(); }
    std::uint64_t ClockValue(std::int64_t time) const { return static_cast<std::uint64_t>(time - base_); }

  private:
    void SetClock(bt_self_component* component, const Clock& clock);
    SharedFieldClass CommonFields() const;
    SharedFieldClass PayloadFields(std::size_t kind) const;

    std::int64_t base_ = 0;
    SharedTraceClass traceClass_;
    SharedStreamClass streamClass_;
    std::array<SharedEventClass, kTracedKinds> eventClasses_;
};

/// Writes what is known of an event into one of such a class.
void FillEvent(bt_event* event, const TracedEvent& from, const ClockedTraces& device);

} // namespace NimaPost
