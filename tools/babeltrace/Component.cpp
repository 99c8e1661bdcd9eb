#include "tools/babeltrace/FolderSource.h"
#include "tools/babeltrace/Parameters.h"
#include "tools/babeltrace/Plugin.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <utility>

using namespace NimaPost;

namespace {

/// Runs `work`, and makes a status of what it throws; `tell` is told of anything but a lack of memory.
template <class Status, class Work, class Tell>
Status Guarded(Status memoryError, Status error, const Work& work, const Tell& tell) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return memoryError;
    } catch (const std::exception& exception) {
        tell(exception.what());
    } catch (...) {
        tell("unexpected exception");
    }
    return error;
}

/// A port's messages: the beginnings of all streams, the events, the ends of all streams.
class MessageIterator {
  public:
    MessageIterator(bt_self_message_iterator* self, const TracePort& port) : self_(self), port_(port) {}

    void SeekBeginning() { next_ = 0; }
    /// Null at the end.
    const bt_message* Next() {
        const std::size_t streams = port_.streams.size();
        const std::size_t events = port_.trace->end - port_.trace->begin;
        const std::size_t at = next_;
        const bt_message* message = nullptr;
        if (at < streams) {
            message = Made(bt_message_stream_beginning_create(self_, port_.streams[at].stream.get()));
        } else if (at < streams + events) {
            message = EventAt(port_.trace->begin + at - streams);
        } else if (at < 2 * streams + events) {
            message =
                Made(bt_message_stream_end_create(self_, port_.streams[at - streams - events].stream.get()));
        } else {
            return nullptr;
        }
        ++next_;
        return message;
    }
    std::size_t Position() const { return next_; }
    void GoBackTo(std::size_t position) { next_ = position; }

  private:
    const bt_message* EventAt(std::size_t index) {
        const TracedDevice& device = *port_.device;
        const TracedEvent event = (*port_.trace->events)[index];
        const auto stream = std::lower_bound(
            port_.streams.begin(), port_.streams.end(), event.thread,
            [](const TracePort::Stream& each, std::size_t thread) { return each.thread < thread; });
        bt_message* const message = Made(bt_message_event_create_with_default_clock_snapshot(
            self_, device.shape.EventClass(event.kind), stream->stream.get(),
            device.shape.ClockValue(event.time)));
        SharedMessage owner(message);
        FillEvent(bt_message_event_borrow_event(message), event, device.traces);
        return owner.release();
    }

    bt_self_message_iterator* self_;
    const TracePort& port_;
    std::size_t next_ = 0;
};

MessageIterator& IteratorOf(bt_self_message_iterator* self) {
    return *static_cast<MessageIterator*>(bt_self_message_iterator_get_data(self));
}

} // namespace

bt_component_class_initialize_method_status NimaFolderInitialize(
    bt_self_component_source* self, bt_self_component_source_configuration* /*configuration*/,
    const bt_value* parameters, void* /*data*/) {
    bt_self_component* const component = bt_self_component_source_as_self_component(self);
    const auto tell = [&](const char* problem) {
        bt_current_thread_error_append_cause_from_component(component, __FILE__, __LINE__, "%s", problem);
    };
    return Guarded(
        BT_COMPONENT_CLASS_INITIALIZE_METHOD_STATUS_MEMORY_ERROR,
        BT_COMPONENT_CLASS_INITIALIZE_METHOD_STATUS_ERROR,
        [&] {
            FolderParameters read;
            std::string problem;
            auto source = std::make_unique<FolderSource>(self);
            if (!ReadParameters(parameters, read, problem) || !source->Read(read, problem)) {
                tell(problem.c_str());
                return BT_COMPONENT_CLASS_INITIALIZE_METHOD_STATUS_ERROR;
            }
            bt_self_component_set_data(component, source.release());
            return BT_COMPONENT_CLASS_INITIALIZE_METHOD_STATUS_OK;
        },
        tell);
}

void NimaFolderFinalize(bt_self_component_source* self) {
    delete static_cast<FolderSource*>(
        bt_self_component_get_data(bt_self_component_source_as_self_component(self)));
}

bt_component_class_query_method_status NimaFolderQuery(bt_self_component_class_source* self,
                                                       bt_private_query_executor* /*executor*/,
                                                       const char* object, const bt_value* parameters,
                                                       void* /*data*/, const bt_value** result) {
    const auto tell = [&](const char* problem) {
        bt_current_thread_error_append_cause_from_component_class(
            bt_self_component_class_source_as_self_component_class(self), __FILE__, __LINE__, "%s", problem);
    };
    return Guarded(
        BT_COMPONENT_CLASS_QUERY_METHOD_STATUS_MEMORY_ERROR, BT_COMPONENT_CLASS_QUERY_METHOD_STATUS_ERROR,
        [&] {
            if (std::string_view(object) != "babeltrace.support-info") {
                return BT_COMPONENT_CLASS_QUERY_METHOD_STATUS_UNKNOWN_OBJECT;
            }
            const auto text = [&](const char* name) -> std::string {
                const bt_value* const value = bt_value_map_borrow_entry_value_const(parameters, name);
                return value != nullptr && bt_value_is_string(value) != BT_FALSE ? bt_value_string_get(value)
                                                                                 : "";
            };
            *result = Made(bt_value_real_create_init(SupportFor(text("type"), text("input"))));
            return BT_COMPONENT_CLASS_QUERY_METHOD_STATUS_OK;
        },
        tell);
}

bt_message_iterator_class_initialize_method_status NimaIteratorInitialize(
    bt_self_message_iterator* self, bt_self_message_iterator_configuration* configuration,
    bt_self_component_port_output* port) {
    const auto* const traced = static_cast<TracePort*>(
        bt_self_component_port_get_data(bt_self_component_port_output_as_self_component_port(port)));
    auto* const iterator = new (std::nothrow) MessageIterator(self, *traced);
    if (iterator == nullptr) {
        return BT_MESSAGE_ITERATOR_CLASS_INITIALIZE_METHOD_STATUS_MEMORY_ERROR;
    }
    bt_self_message_iterator_set_data(self, iterator);
    // Times never fall, so that babeltrace may skip what comes before a time that it looks for.
    bt_self_message_iterator_configuration_set_can_seek_forward(configuration, BT_TRUE);
    return BT_MESSAGE_ITERATOR_CLASS_INITIALIZE_METHOD_STATUS_OK;
}

void NimaIteratorFinalize(bt_self_message_iterator* self) {
    delete static_cast<MessageIterator*>(bt_self_message_iterator_get_data(self));
}

bt_message_iterator_class_next_method_status NimaIteratorNext(bt_self_message_iterator* self,
                                                              bt_message_array_const messages,
                                                              uint64_t capacity, uint64_t* count) {
    MessageIterator& iterator = IteratorOf(self);
    const std::size_t begin = iterator.Position();
    *count = 0;
    const auto status = Guarded(
        BT_MESSAGE_ITERATOR_CLASS_NEXT_METHOD_STATUS_MEMORY_ERROR,
        BT_MESSAGE_ITERATOR_CLASS_NEXT_METHOD_STATUS_ERROR,
        [&] {
            const bt_message* message = nullptr;
            while (*count < capacity && (message = iterator.Next()) != nullptr) {
                messages[(*count)++] = message;
            }
            return *count > 0 ? BT_MESSAGE_ITERATOR_CLASS_NEXT_METHOD_STATUS_OK
                              : BT_MESSAGE_ITERATOR_CLASS_NEXT_METHOD_STATUS_END;
        },
        [&](const char* problem) {
            bt_current_thread_error_append_cause_from_message_iterator(self, __FILE__, __LINE__, "%s",
                                                                       problem);
        });
    if (status < 0) {
        while (*count > 0) {
            bt_message_put_ref(messages[--*count]);
        }
        iterator.GoBackTo(begin);
    }
    return status;
}

bt_message_iterator_class_can_seek_beginning_method_status NimaIteratorCanSeekBeginning(
    bt_self_message_iterator* /*self*/, bt_bool* canSeek) {
    *canSeek = BT_TRUE;
    return BT_MESSAGE_ITERATOR_CLASS_CAN_SEEK_BEGINNING_METHOD_STATUS_OK;
}

bt_message_iterator_class_seek_beginning_method_status NimaIteratorSeekBeginning(
    bt_self_message_iterator* self) {
    IteratorOf(self).SeekBeginning();
    return BT_MESSAGE_ITERATOR_CLASS_SEEK_BEGINNING_METHOD_STATUS_OK;
}
