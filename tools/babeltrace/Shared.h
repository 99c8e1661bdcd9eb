#pragma once

#include <memory>
#include <new>

#include <babeltrace2/babeltrace.h>

namespace NimaPost {

/// A reference to an object of babeltrace's, which counts them.
template <class Object, void (*kPut)(const Object*)>
struct PutReference {
    void operator()(const Object* object) const { kPut(object); }
};
template <class Object, void (*kPut)(const Object*)>
using Shared = std::unique_ptr<Object, PutReference<Object, kPut>>;

using SharedClockClass = Shared<bt_clock_class, bt_clock_class_put_ref>;
using SharedEventClass = Shared<bt_event_class, bt_event_class_put_ref>;
using SharedFieldClass = Shared<bt_field_class, bt_field_class_put_ref>;
using SharedMessage = Shared<const bt_message, bt_message_put_ref>;
using SharedStream = Shared<bt_stream, bt_stream_put_ref>;
using SharedStreamClass = Shared<bt_stream_class, bt_stream_class_put_ref>;
using SharedTrace = Shared<bt_trace, bt_trace_put_ref>;
using SharedTraceClass = Shared<bt_trace_class, bt_trace_class_put_ref>;
using SharedValue = Shared<bt_value, bt_value_put_ref>;

/// What babeltrace made; it makes everything but when memory is short.
template <class Object>
Object* Made(Object* object) {
    if (object == nullptr) {
        throw std::bad_alloc();
    }
    return object;
}

/// For calls that fail for the same reason alone.
template <class Status>
void Check(Status status) {
    if (static_cast<int>(status) != 0) {
        throw std::bad_alloc();
    }
}

} // namespace NimaPost
