#include "tools/names/Names.h"

#include "tools/base/Text.h"

#include <array>
#include <cstdio>
#include <vector>

namespace NimaPost {

namespace {

constexpr std::uint64_t kMostNamesBytes = 16 << 20;
constexpr std::string_view kBlanks = " \t";

void SkipBlanks(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
}

/// A word, or a text in double quotes in which a backslash stands before a quote or a backslash.
bool TakeWord(std::string_view& line, std::string& word) {
    SkipBlanks(line);
    word.clear();
    if (line.empty() || line.front() == '#') {
        return false;
    }
    if (line.front() != '"') {
        const std::size_t end = std::min(line.find_first_of(kBlanks), line.size());
        word = line.substr(0, end);
        line.remove_prefix(end);
        return true;
    }
    for (std::size_t i = 1; i < line.size(); ++i) {
        if (line[i] == '"') {
            line.remove_prefix(i + 1);
            return true;
        }
        if (line[i] == '\\' && i + 1 < line.size() && (line[i + 1] == '"' || line[i + 1] == '\\')) {
            ++i;
        }
        word += line[i];
    }
    return false;
}

/// A conversion of a format: "%", flags, width, precision and a letter. Length letters are of no use to
/// 32-bit words, text has none.
struct Conversion {
    std::string flags;
    char letter = 0;
    std::size_t length = 0;
};

bool ReadConversion(std::string_view format, Conversion& conversion) {
    std::size_t i = format.find_first_not_of("-+ #0", 1);
    const auto digits = [&] {
        for (int count = 0; i < format.size() && format[i] >= '0' && format[i] <= '9'; ++i) {
            if (++count > 3) {
                return false;
            }
        }
        return i < format.size();
    };
    if (i >= format.size() || i > 8 || !digits()) {
        return false;
    }
    if (format[i] == '.' && (++i, !digits())) {
        return false;
    }
    conversion.letter = format[i];
    conversion.flags = format.substr(1, i - 1);
    conversion.length = i + 1;
    return std::string_view("diuxXocp").find(conversion.letter) != std::string_view::npos;
}

/// The number of arguments, or nothing for a format that is none.
std::optional<std::size_t> CountArguments(std::string_view format) {
    std::size_t count = 0;
    for (std::size_t at = format.find('%'); at != std::string_view::npos; at = format.find('%', at)) {
        const std::string_view rest = format.substr(at);
        Conversion conversion;
        if (rest.starts_with("%%")) {
            at += 2;
        } else if (ReadConversion(rest, conversion)) {
            at += conversion.length;
            ++count;
        } else {
            return std::nullopt;
        }
    }
    return count;
}

void AppendConverted(std::string& out, const Conversion& conversion, std::uint32_t value) {
    if (conversion.letter == 'c') {
        const char byte = static_cast<char>(value);
        return AppendPrintable(out, {&byte, 1});
    }
    if (conversion.letter == 'p') {
        return AppendHex32(out, value);
    }
    // Widths are three digits at most.
    std::array<char, 2100> text{};
    std::string format = "%" + conversion.flags + conversion.letter;
    const bool isSigned = conversion.letter == 'd' || conversion.letter == 'i';
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    if (isSigned) {
        std::snprintf(text.data(), text.size(), format.c_str(), static_cast<std::int32_t>(value));
    } else {
        std::snprintf(text.data(), text.size(), format.c_str(), value);
    }
#pragma GCC diagnostic pop
    out += text.data();
}

bool Number(const std::string& word, std::uint32_t most, std::uint32_t& number) {
    std::uint64_t value = 0;
    if (!ParseNumber(word, value) || value > most) {
        return false;
    }
    number = static_cast<std::uint32_t>(value);
    return true;
}

template <typename Map>
std::optional<std::uint32_t> Find(const Map& names, std::string_view text, std::uint32_t most) {
    for (const auto& [number, name] : names) {
        if (EqualNoCase(name, text)) {
            return number;
        }
    }
    std::uint32_t number = 0;
    if (!Number(std::string(text), most, number)) {
        return std::nullopt;
    }
    return number;
}

std::string NameOr(const std::map<std::uint32_t, std::string>& names, std::uint32_t number,
                   std::string_view kind) {
    const auto found = names.find(number);
    return found != names.end() ? found->second : std::string(kind) + std::to_string(number);
}

constexpr std::uint32_t kMostComponent = 127;
constexpr std::uint32_t kMostLevel = 3;
constexpr std::uint32_t kMostEvent = 0x3FFFFF;

/// What the library itself records.
constexpr std::array kOwnNames{
    "component 127 Diagnostics",
    "event 127 0x7532 dump_starts",
    "event 127 0x7533 dump_failed_to_start",
    "event 127 0x7534 dump_ends",
    "event 127 0x7535 callback_dump_without_callback",
    "event 127 0x7536 callback_dump_starts",
    "event 127 0x7537 callback_dump_failed_to_start",
    "event 127 0x7538 callback_dump_ends",
    "event 127 0xEACF fatal_error_handling",
    "event 127 0xEAD0 second_failure_not_handled",
    "event 127 0xEAD1 exit_trapped",
    "event 127 0xEAD5 recovery",
    "ring Platform 0 module_listing_starts",
    "ring Platform 1 no_module_snapshot \"errno %d\"",
    "ring Platform 3 module_listing_ends",
    "ring Platform 4 no_first_module \"errno %d\"",
    "ring Platform 8 fault_in_diagnostics \"code %#x\"",
    "ring Platform 9 event_callback \"type %u, argument %#x, after %u, fault %#x\"",
};

} // namespace

Names::Names() {
    std::string problem;
    for (const char* line : kOwnNames) {
        AddLine(line, problem);
    }
}

bool Names::Load(const std::string& path, std::string& problem) {
    const auto file = InputFile::Open(path, problem);
    if (!file) {
        return false;
    }
    if (file->Size() > kMostNamesBytes) {
        problem = path + ": too large for a dictionary of names";
        return false;
    }
    const std::string bytes = file->ReadAll(kMostNamesBytes);
    std::string_view rest = bytes;
    for (int number = 1; !rest.empty(); ++number) {
        const std::size_t end = std::min(rest.find('\n'), rest.size() - 1) + 1;
        if (!AddLine(WithoutLineEnd(rest.substr(0, end)), problem)) {
            problem.insert(0, path + ":" + std::to_string(number) + ": ");
            return false;
        }
        rest.remove_prefix(end);
    }
    return true;
}

bool Names::AddLine(std::string_view line, std::string& problem) {
    std::vector<std::string> words;
    for (std::string word; TakeWord(line, word);) {
        words.push_back(word);
    }
    if (!line.empty() && line.front() != '#') {
        problem = "a quote without its end";
        return false;
    }
    if (words.empty()) {
        return true;
    }
    const std::string& kind = words[0];
    std::uint32_t number = 0;
    const bool isEvent = kind == "event" || kind == "ring";
    if (!isEvent) {
        const std::uint32_t most = kind == "component" ? kMostComponent
                                   : kind == "level"   ? kMostLevel
                                                       : 0xFFFFFFFF;
        if (kind != "component" && kind != "level" && kind != "thread") {
            problem = "\"" + kind + "\" is not component, level, thread, event or ring";
            return false;
        }
        if (words.size() != 3 || !Number(words[1], most, number)) {
            problem = kind + " takes a number (at most " + std::to_string(most) + ") and a name";
            return false;
        }
        (kind == "component" ? components_ : kind == "level" ? levels_ : threads_)[number] = words[2];
        return true;
    }
    if (words.size() < 4 || words.size() > 5 ||
        !Number(words[2], kind == "event" ? kMostEvent : 0xFFFFFFFF, number)) {
        problem = kind == "event" ? "event takes a component, an event number, a name and perhaps a format"
                                  : "ring takes a ring's name, a code, a name and perhaps a format";
        return false;
    }
    EventName event{words[3], words.size() == 5 ? words[4] : std::string(), std::nullopt};
    if (words.size() == 5) {
        event.arguments = CountArguments(event.format);
        if (!event.arguments) {
            problem = "the format takes %d %i %u %x %X %o %c %p, one for each 32-bit argument, and %%";
            return false;
        }
    }
    if (kind == "ring") {
        ringEvents_[{words[1], number}] = event;
        return true;
    }
    const auto component = FindComponent(words[1]);
    if (!component) {
        problem = "no component \"" + words[1] + "\"";
        return false;
    }
    events_[{*component, number}] = event;
    return true;
}

std::string Names::Component(std::uint32_t number) const {
    return NameOr(components_, number, "component ");
}

std::string Names::Level(std::uint32_t number) const {
    return NameOr(levels_, number, "level ");
}

std::string Names::Thread(std::uint32_t id) const {
    const auto found = threads_.find(id);
    return found != threads_.end() ? found->second : std::string();
}

std::optional<std::uint32_t> Names::FindComponent(std::string_view text) const {
    return Find(components_, text, kMostComponent);
}

std::optional<std::uint32_t> Names::FindLevel(std::string_view text) const {
    return Find(levels_, text, kMostLevel);
}

const EventName* Names::Event(std::uint32_t component, std::uint32_t event) const {
    const auto found = events_.find({component, event});
    return found != events_.end() ? &found->second : nullptr;
}

const EventName* Names::RingEvent(std::string_view ring, std::uint32_t code) const {
    const auto found = ringEvents_.find(std::pair(std::string(ring), code));
    return found != ringEvents_.end() ? &found->second : nullptr;
}

void AppendFormatted(std::string& out, const EventName& event, std::span<const std::uint32_t> arguments) {
    std::size_t used = 0;
    std::string_view rest = event.format;
    while (!rest.empty()) {
        const std::size_t plain = std::min(rest.find('%'), rest.size());
        AppendPrintable(out, rest.substr(0, plain));
        rest.remove_prefix(plain);
        Conversion conversion;
        if (rest.starts_with("%%")) {
            out += '%';
            rest.remove_prefix(2);
        } else if (!rest.empty() && ReadConversion(rest, conversion)) {
            if (used < arguments.size()) {
                AppendConverted(out, conversion, arguments[used]);
            } else {
                out += '?';
            }
            ++used;
            rest.remove_prefix(conversion.length);
        }
    }
    for (; used < arguments.size(); ++used) {
        out += ' ';
        AppendHex(out, arguments[used]);
    }
}

} // namespace NimaPost
