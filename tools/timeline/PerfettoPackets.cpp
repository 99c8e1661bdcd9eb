#include "tools/timeline/PerfettoPackets.h"

#include "tools/base/Json.h"
#include "tools/base/OwnOutput.h"
#include "tools/base/Protobuf.h"

namespace NimaPost {

namespace {

// Numbers of fields and values, as Perfetto's protocol definitions have them; each namespace is a message.

constexpr std::uint32_t kTracePacket = 1;

namespace TracePacket {
constexpr std::uint32_t kChromeEvents = 5;
constexpr std::uint32_t kClockSnapshot = 6;
constexpr std::uint32_t kTimestamp = 8;
constexpr std::uint32_t kSequenceId = 10;
constexpr std::uint32_t kTrackEvent = 11;
constexpr std::uint32_t kInternedData = 12;
constexpr std::uint32_t kSequenceFlags = 13;
constexpr std::uint64_t kIncrementalStateCleared = 1;
constexpr std::uint64_t kNeedsIncrementalState = 2;
constexpr std::uint32_t kTrackDescriptor = 60;
} // namespace TracePacket

namespace ChromeEvents {
constexpr std::uint32_t kMetadata = 2;
constexpr std::uint32_t kName = 1;
constexpr std::uint32_t kJsonValue = 5;
} // namespace ChromeEvents

namespace ClockSnapshot {
constexpr std::uint32_t kClock = 1;
constexpr std::uint32_t kClockId = 1;
constexpr std::uint32_t kTime = 2;
constexpr std::uint64_t kRealTime = 1;
constexpr std::uint64_t kBootTime = 6;
} // namespace ClockSnapshot

namespace TrackDescriptor {
constexpr std::uint32_t kUuid = 1;
constexpr std::uint32_t kName = 2;
constexpr std::uint32_t kProcess = 3;
constexpr std::uint32_t kThread = 4;
constexpr std::uint32_t kParent = 5;
constexpr std::uint32_t kCounter = 8;
} // namespace TrackDescriptor

namespace ProcessDescriptor {
constexpr std::uint32_t kProcess = 1;
constexpr std::uint32_t kName = 6;
} // namespace ProcessDescriptor

namespace ThreadDescriptor {
constexpr std::uint32_t kProcess = 1;
constexpr std::uint32_t kThread = 2;
constexpr std::uint32_t kName = 5;
} // namespace ThreadDescriptor

namespace CounterDescriptor {
constexpr std::uint32_t kUnit = 3;
constexpr std::uint64_t kCount = 2;
} // namespace CounterDescriptor

namespace TrackEvent {
constexpr std::uint32_t kCategoryNumber = 3;
constexpr std::uint32_t kAnnotation = 4;
constexpr std::uint32_t kType = 9;
constexpr std::uint32_t kNameNumber = 10;
constexpr std::uint32_t kTrack = 11;
constexpr std::uint32_t kCategory = 22;
constexpr std::uint32_t kName = 23;
constexpr std::uint32_t kCounterValue = 30;
constexpr std::uint64_t kInstant = 3;
constexpr std::uint64_t kCounter = 4;
} // namespace TrackEvent

namespace DebugAnnotation {
constexpr std::uint32_t kNameNumber = 1;
constexpr std::uint32_t kNumber = 3;
constexpr std::uint32_t kText = 6;
constexpr std::uint32_t kPointer = 7;
constexpr std::uint32_t kName = 10;
constexpr std::uint32_t kTextNumber = 17;
} // namespace DebugAnnotation

/// Tables of texts, each of which is a list of numbers and texts.
namespace InternedData {
constexpr std::uint32_t kCategories = 1;
constexpr std::uint32_t kEventNames = 2;
constexpr std::uint32_t kAnnotationNames = 3;
constexpr std::uint32_t kAnnotationTexts = 29;
constexpr std::uint32_t kNumber = 1;
constexpr std::uint32_t kText = 2;
} // namespace InternedData

/// The file has one writer.
constexpr std::uint64_t kSequence = 1;

} // namespace

template <class Fill>
void PerfettoPackets::Packet(const Fill& fill) {
    std::string& out = out_.Text();
    AppendMessageField(out, kTracePacket, [&] {
        fill(out);
        AppendNumberField(out, TracePacket::kSequenceId, kSequence);
        AppendNumberField(
            out, TracePacket::kSequenceFlags,
            first_ ? TracePacket::kIncrementalStateCleared : TracePacket::kNeedsIncrementalState);
        if (!newTexts_.empty()) {
            AppendBytesField(out, TracePacket::kInternedData, newTexts_);
            newTexts_.clear();
        }
    });
    first_ = false;
    out_.Pace();
}

PerfettoPackets::PerfettoPackets(Output& out) : out_(out) {
    out_.Write(kPerfettoBegin);
}

void PerfettoPackets::About(std::string_view name, const Json& value) {
    const std::string text = value.dump(-1, ' ', false, Json::error_handler_t::replace);
    Packet([&](std::string& out) {
        AppendMessageField(out, TracePacket::kChromeEvents, [&] {
            AppendMessageField(out, ChromeEvents::kMetadata, [&] {
                AppendBytesField(out, ChromeEvents::kName, name);
                AppendBytesField(out, ChromeEvents::kJsonValue, text);
            });
        });
    });
}

void PerfettoPackets::Date(std::int64_t time, std::int64_t sinceEpoch) {
    Packet([&](std::string& out) {
        const auto clock = [&](std::uint64_t id, std::int64_t reading) {
            AppendMessageField(out, ClockSnapshot::kClock, [&] {
                AppendNumberField(out, ClockSnapshot::kClockId, id);
                AppendNumberField(out, ClockSnapshot::kTime, static_cast<std::uint64_t>(reading));
            });
        };
        AppendNumberField(out, TracePacket::kTimestamp, static_cast<std::uint64_t>(time));
        AppendMessageField(out, TracePacket::kClockSnapshot, [&] {
            clock(ClockSnapshot::kBootTime, time);
            clock(ClockSnapshot::kRealTime, sinceEpoch);
        });
    });
}

template <class Fill>
void PerfettoPackets::Track(std::uint64_t track, std::uint64_t parent, const Fill& fill) {
    Packet([&](std::string& out) {
        AppendMessageField(out, TracePacket::kTrackDescriptor, [&] {
            AppendNumberField(out, TrackDescriptor::kUuid, track);
            if (parent != 0) {
                AppendNumberField(out, TrackDescriptor::kParent, parent);
            }
            fill(out);
        });
    });
}

void PerfettoPackets::Process(std::uint64_t track, std::size_t process, std::string_view title) {
    Track(track, 0, [&](std::string& out) {
        AppendMessageField(out, TrackDescriptor::kProcess, [&] {
            AppendNumberField(out, ProcessDescriptor::kProcess, process);
            AppendBytesField(out, ProcessDescriptor::kName, title);
        });
    });
}

void PerfettoPackets::Thread(std::uint64_t track, std::uint64_t processTrack, std::size_t process,
                             std::size_t thread, std::string_view title) {
    Track(track, processTrack, [&](std::string& out) {
        AppendMessageField(out, TrackDescriptor::kThread, [&] {
            AppendNumberField(out, ThreadDescriptor::kProcess, process);
            AppendNumberField(out, ThreadDescriptor::kThread, thread);
            AppendBytesField(out, ThreadDescriptor::kName, title);
        });
    });
}

void PerfettoPackets::Other(std::uint64_t track, std::uint64_t processTrack, std::string_view title) {
    Track(track, processTrack,
          [&](std::string& out) { AppendBytesField(out, TrackDescriptor::kName, title); });
}

void PerfettoPackets::Counter(std::uint64_t track, std::uint64_t processTrack, std::string_view title) {
    Track(track, processTrack, [&](std::string& out) {
        AppendBytesField(out, TrackDescriptor::kName, title);
        AppendMessageField(out, TrackDescriptor::kCounter, [&] {
            AppendNumberField(out, CounterDescriptor::kUnit, CounterDescriptor::kCount);
        });
    });
}

template <class Fill>
void PerfettoPackets::Event(std::uint64_t track, std::int64_t time, std::uint64_t type, const Fill& fill) {
    Packet([&](std::string& out) {
        AppendNumberField(out, TracePacket::kTimestamp, static_cast<std::uint64_t>(time));
        AppendMessageField(out, TracePacket::kTrackEvent, [&] {
            AppendNumberField(out, TrackEvent::kType, type);
            AppendNumberField(out, TrackEvent::kTrack, track);
            fill(out);
        });
    });
}

void PerfettoPackets::Count(std::uint64_t track, std::int64_t time, std::uint64_t value) {
    Event(track, time, TrackEvent::kCounter,
          [&](std::string& out) { AppendNumberField(out, TrackEvent::kCounterValue, value); });
}

void PerfettoPackets::Instant(std::uint64_t track, std::int64_t time, std::string_view category,
                              std::string_view title, const std::function<void(Annotations&)>& annotate) {
    Event(track, time, TrackEvent::kInstant, [&](std::string& out) {
        AppendInterned(out, categories_, InternedData::kCategories, TrackEvent::kCategoryNumber,
                       TrackEvent::kCategory, category);
        AppendInterned(out, titles_, InternedData::kEventNames, TrackEvent::kNameNumber, TrackEvent::kName,
                       title);
        Annotations annotations(*this, out);
        annotate(annotations);
    });
}

void PerfettoPackets::AppendInterned(std::string& out, InternedTexts& texts, std::uint32_t table,
                                     std::uint32_t numberField, std::uint32_t textField,
                                     std::string_view text) {
    const InternedTexts::Entry entry = texts.NumberOf(text);
    if (entry.number == 0) {
        AppendBytesField(out, textField, text);
        return;
    }
    AppendNumberField(out, numberField, entry.number);
    if (entry.isNew) {
        AppendMessageField(newTexts_, table, [&] {
            AppendNumberField(newTexts_, InternedData::kNumber, entry.number);
            AppendBytesField(newTexts_, InternedData::kText, text);
        });
    }
}

template <class Value>
void PerfettoPackets::Annotations::Add(std::string_view name, const Value& value) {
    AppendMessageField(out_, TrackEvent::kAnnotation, [&] {
        packets_.AppendInterned(out_, packets_.annotationNames_, InternedData::kAnnotationNames,
                                DebugAnnotation::kNameNumber, DebugAnnotation::kName, name);
        value();
    });
}

void PerfettoPackets::Annotations::Text(std::string_view name, std::string_view value) {
    Add(name, [&] { AppendBytesField(out_, DebugAnnotation::kText, value); });
}

void PerfettoPackets::Annotations::Word(std::string_view name, std::string_view value) {
    Add(name, [&] {
        packets_.AppendInterned(out_, packets_.words_, InternedData::kAnnotationTexts,
                                DebugAnnotation::kTextNumber, DebugAnnotation::kText, value);
    });
}

void PerfettoPackets::Annotations::Number(std::string_view name, std::uint64_t value) {
    Add(name, [&] { AppendNumberField(out_, DebugAnnotation::kNumber, value); });
}

void PerfettoPackets::Annotations::Pointer(std::string_view name, std::uint64_t value) {
    Add(name, [&] { AppendNumberField(out_, DebugAnnotation::kPointer, value); });
}

} // namespace NimaPost
