#include "tools/babeltrace/EventShape.h"

#include "tools/base/ContentHash.h"
#include "tools/base/CounterClock.h"

#include <algorithm>
#include <charconv>
#include <string>

namespace NimaPost {

namespace {

/// The fields that all events have, and those of their kinds, in their order.
enum CommonField : std::uint64_t { kThreadField, kFileField, kMarkField, kEarlierField, kLaterField };
enum PayloadField : std::uint64_t { kLevelField, kNameField, kTextField, kCountField, kArgumentsField };

/// What babeltrace takes an identifier of 16 bytes for; equal for equal names.
std::array<std::uint8_t, 16> IdentifierOf(std::string_view name) {
    ContentHash hash;
    hash.AddWhole(name);
    const std::string digits = hash.Hexadecimal();
    std::array<std::uint8_t, 16> identifier{};
    for (std::size_t i = 0; i < identifier.size(); ++i) {
        std::from_chars(digits.data() + 2 * i, digits.data() + 2 * i + 2, identifier[i], 16);
    }
    return identifier;
}

void Append(const SharedFieldClass& structure, const char* name, bt_field_class* made) {
    const SharedFieldClass field(Made(made));
    Check(bt_field_class_structure_append_member(structure.get(), name, field.get()));
}

bool HasArguments(std::size_t kind) {
    return kind != static_cast<std::size_t>(EventKind::kText) && kind < kEventKinds;
}

void SetText(bt_field* structure, std::uint64_t index, const char* text) {
    Check(bt_field_string_set_value(bt_field_structure_borrow_member_field_by_index(structure, index), text));
}

void SetNumber(bt_field* structure, std::uint64_t index, std::int64_t number) {
    bt_field_integer_signed_set_value(bt_field_structure_borrow_member_field_by_index(structure, index),
                                      number);
}

} // namespace

EventShape::EventShape(bt_self_component* component, const Clock& clock)
    : base_(clock.base),
      traceClass_(Made(bt_trace_class_create(component))),
      streamClass_(Made(bt_stream_class_create(traceClass_.get()))) {
    SetClock(component, clock);
    const SharedFieldClass common = CommonFields();
    Check(bt_stream_class_set_event_common_context_field_class(streamClass_.get(), common.get()));
    for (std::size_t kind = 0; kind < kTracedKinds; ++kind) {
        eventClasses_[kind].reset(Made(bt_event_class_create(streamClass_.get())));
        Check(bt_event_class_set_name(eventClasses_[kind].get(), std::string(TracedKind(kind)).c_str()));
        const SharedFieldClass payload = PayloadFields(kind);
        Check(bt_event_class_set_payload_field_class(eventClasses_[kind].get(), payload.get()));
    }
}

void EventShape::SetClock(bt_self_component* component, const Clock& clock) {
    const SharedClockClass made(Made(bt_clock_class_create(component)));
    bt_clock_class_set_frequency(made.get(), static_cast<std::uint64_t>(kSecond));
    bt_clock_class_set_offset(made.get(), clock.base / kSecond, 0);
    bt_clock_class_set_origin_is_unix_epoch(made.get(), clock.absolute ? BT_TRUE : BT_FALSE);
    Check(bt_clock_class_set_name(made.get(), "nima"));
    if (!clock.absolute) {
        bt_clock_class_set_uuid(made.get(), IdentifierOf(clock.name).data());
    }
    Check(bt_stream_class_set_default_clock_class(streamClass_.get(), made.get()));
}

SharedFieldClass EventShape::CommonFields() const {
    SharedFieldClass fields(Made(bt_field_class_structure_create(traceClass_.get())));
    for (const char* name : {"thread", "file", "mark"}) {
        Append(fields, name, bt_field_class_string_create(traceClass_.get()));
    }
    for (const char* name : {"earlier_ns", "later_ns"}) {
        Append(fields, name, bt_field_class_integer_signed_create(traceClass_.get()));
    }
    return fields;
}

SharedFieldClass EventShape::PayloadFields(std::size_t kind) const {
    SharedFieldClass fields(Made(bt_field_class_structure_create(traceClass_.get())));
    for (const char* name : {"level", "name", "text"}) {
        Append(fields, name, bt_field_class_string_create(traceClass_.get()));
    }
    if (HasArguments(kind)) {
        const SharedFieldClass argument(Made(bt_field_class_integer_unsigned_create(traceClass_.get())));
        bt_field_class_integer_set_field_value_range(argument.get(), 32);
        bt_field_class_integer_set_preferred_display_base(
            argument.get(), BT_FIELD_CLASS_INTEGER_PREFERRED_DISPLAY_BASE_HEXADECIMAL);
        // Without a field for their number, one is made up wherever the events are written as CTF.
        const SharedFieldClass count(Made(bt_field_class_integer_unsigned_create(traceClass_.get())));
        bt_field_class_integer_set_field_value_range(count.get(), 32);
        Check(bt_field_class_structure_append_member(fields.get(), "argument_count", count.get()));
        Append(fields, "arguments",
               bt_field_class_array_dynamic_create(traceClass_.get(), argument.get(), count.get()));
    }
    return fields;
}

void FillEvent(bt_event* event, const TracedEvent& from, const ClockedTraces& device) {
    bt_field* const common = bt_event_borrow_common_context_field(event);
    SetText(common, kThreadField, device.ThreadTitles()[from.thread].c_str());
    SetText(common, kFileField, device.FileNames()[from.file].c_str());
    SetText(common, kMarkField, from.mark);
    SetNumber(common, kEarlierField, from.earlier);
    SetNumber(common, kLaterField, from.later);
    bt_field* const payload = bt_event_borrow_payload_field(event);
    SetText(payload, kLevelField, from.level);
    SetText(payload, kNameField, from.name);
    SetText(payload, kTextField, from.text);
    if (HasArguments(from.kind)) {
        bt_field_integer_unsigned_set_value(
            bt_field_structure_borrow_member_field_by_index(payload, kCountField), from.arguments.size());
        bt_field* const arguments = bt_field_structure_borrow_member_field_by_index(payload, kArgumentsField);
        Check(bt_field_array_dynamic_set_length(arguments, from.arguments.size()));
        for (std::size_t i = 0; i < from.arguments.size(); ++i) {
            bt_field_integer_unsigned_set_value(bt_field_array_borrow_element_field_by_index(arguments, i),
                                                from.arguments[i]);
        }
    }
}

} // namespace NimaPost
