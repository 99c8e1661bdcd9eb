#include "tools/words/Words.h"

#include "catalogue/SysTrace.h"
#include "tools/base/Text.h"
#include "tools/names/EventFormat.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace NimaPost {

namespace {

/// A name with its formatted arguments, or `kind` and number, or either with the values as they are.
void AppendEvent(std::string& text, const EventName* event, std::string_view kind, std::uint32_t number,
                 std::span<const std::uint32_t> values, bool whole) {
    if (event != nullptr) {
        AppendPrintable(text, event->name);
    } else {
        text += kind;
        AppendHex(text, number);
    }
    if (event != nullptr && whole) {
        text += event->format.empty() ? "" : ": ";
        AppendFormatted(text, event->format, values);
        return;
    }
    for (const std::uint32_t value : values) {
        text += ' ';
        AppendHex(text, value);
    }
}

/// "Engine, component 7, components 20 to 31": long runs without names are put together.
std::string ComponentList(const std::vector<std::uint32_t>& components, const Names& names) {
    constexpr std::size_t kShortestRun = 3;
    const auto isNameless = [&](std::uint32_t component) {
        return names.Component(component) == "component " + std::to_string(component);
    };
    std::string text;
    for (std::size_t i = 0; i < components.size();) {
        std::size_t end = i;
        while (end < components.size() && components[end] == components[i] + (end - i) &&
               isNameless(components[end])) {
            ++end;
        }
        text += text.empty() ? "" : ", ";
        if (end - i >= kShortestRun) {
            text +=
                "components " + std::to_string(components[i]) + " to " + std::to_string(components[end - 1]);
            i = end;
        } else {
            text += names.Component(components[i]);
            ++i;
        }
    }
    return text;
}

/// Empty if none is open.
std::string LevelInWords(std::span<const std::uint32_t, SYSTRACE_FILTER_WORDS> filter, std::uint32_t level,
                         const Names& names) {
    using namespace Nima::Catalogue;
    std::vector<std::uint32_t> open;
    std::vector<std::uint32_t> closed;
    for (std::uint32_t component = 0; component < kComponents; ++component) {
        const bool isOpen = (filter[FilterWord(level, component)] & FilterBit(component)) != 0;
        (isOpen ? open : closed).push_back(component);
    }
    if (closed.empty()) {
        return "every component";
    }
    return open.size() > closed.size() ? "every component but " + ComponentList(closed, names)
                                       : ComponentList(open, names);
}

} // namespace

std::string_view StateName(RecordState state) {
    return state == RecordState::kTorn ? "torn" : state == RecordState::kEntangled ? "entangled" : "whole";
}

std::string_view CaptureStateName(std::uint32_t state) {
    const auto& names = Nima::Catalogue::kCaptureStateNames;
    return state < names.size() ? names[state] : "unknown";
}

Tracing TracingOf(const SysTraceHeader& header, bool inDump) {
    const auto passes = [](const auto& filter) {
        return std::any_of(std::begin(filter), std::end(filter), [](auto word) { return word != 0; });
    };
    if (passes(header.liveFilter)) {
        return Tracing::kOn;
    }
    const bool setAside = header.savedState != 0 && passes(header.savedFilter);
    return !setAside ? Tracing::kOff : inDump ? Tracing::kOn : Tracing::kSuspended;
}

std::string_view TracingName(Tracing tracing) {
    return tracing == Tracing::kOn ? "on" : tracing == Tracing::kOff ? "off" : "suspended";
}

std::string CaptureInWords(const SysTraceHeader& header, bool inDump) {
    switch (TracingOf(header, inDump)) {
        case Tracing::kOff:
            return "nothing is traced, the filter lets nothing through";
        case Tracing::kSuspended:
            return "nothing is traced, the filter lets nothing through and one is set aside";
        default:
            return std::string(CaptureStateName(header.state));
    }
}

std::string FilterInWords(std::span<const std::uint32_t, SYSTRACE_FILTER_WORDS> filter, const Names& names) {
    std::string text;
    for (std::uint32_t level = 0; level < Nima::Catalogue::kTraceLevels; ++level) {
        text += (text.empty() ? "" : "; ") + names.Level(level) + ": ";
        const std::string components = LevelInWords(filter, level, names);
        text += components.empty() ? "none" : components;
    }
    return text;
}

std::string OpenLevelsInWords(std::span<const std::uint32_t, SYSTRACE_FILTER_WORDS> filter,
                              const Names& names) {
    std::string text;
    for (std::uint32_t level = 0; level < Nima::Catalogue::kTraceLevels; ++level) {
        const std::string components = LevelInWords(filter, level, names);
        if (!components.empty()) {
            text += (text.empty() ? "" : "; ") + names.Level(level) + ": " + components;
        }
    }
    return text.empty() ? "none" : text;
}

void AppendTraceEvent(std::string& text, const Names& names, std::uint32_t component, std::uint32_t event,
                      std::span<const std::uint32_t> values, RecordState state) {
    AppendEvent(text, names.Event(component, event), "event ", event, values, state == RecordState::kWhole);
    if (state != RecordState::kWhole) {
        text += "  [";
        text += StateName(state);
        text += ']';
    }
}

std::span<const std::uint32_t> RingArguments(const EventName* event, const RingBufferData& record) {
    const std::span all = std::span(record.words).subspan(1);
    return event != nullptr && event->arguments ? all.first(std::min(*event->arguments, all.size())) : all;
}

void AppendRingEvent(std::string& text, const Names& names, std::string_view ring,
                     const RingBufferData& record) {
    const EventName* event = names.RingEvent(ring, record.words[0]);
    AppendEvent(text, event, "code ", record.words[0], RingArguments(event, record), true);
}

} // namespace NimaPost
