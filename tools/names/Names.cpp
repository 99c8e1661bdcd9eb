#include "tools/names/Names.h"

#include "catalogue/OwnEvents.h"
#include "catalogue/Rings.h"
#include "tools/base/InputFile.h"
#include "tools/base/Text.h"
#include "tools/names/EventFormat.h"

#include <algorithm>

#include <Diagnostics/Formats.h>

namespace NimaPost {

namespace {

constexpr std::uint64_t kMostNamesBytes = 16 << 20;
constexpr std::string_view kBlanks = " \t";

void SkipBlanks(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
}

/// A word, or a text in double quotes in which quotes and backslashes are preceded by a backslash.
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

constexpr std::uint32_t kMostComponent = SYSTRACE_COMPONENT_MASK;
constexpr std::uint32_t kMostLevel = SYSTRACE_LEVEL_MASK;
constexpr std::uint32_t kAnyNumber = 0xFFFFFFFF;

std::string_view NameOfRing(std::size_t index) {
    return Nima::Catalogue::kRings[index].name;
}

EventName NameOf(const Nima::Catalogue::OwnEventRow& row) {
    return {std::string(row.name), std::string(row.format),
            row.format.empty() ? std::nullopt : CountArguments(row.format)};
}

bool SplitWords(std::string_view line, std::vector<std::string>& words, std::string& problem) {
    for (std::string word; TakeWord(line, word);) {
        words.push_back(word);
    }
    if (!line.empty() && line.front() != '#') {
        problem = "a quote that is not closed";
        return false;
    }
    return true;
}

} // namespace

/// A kind of line: its first word, how many words it has, and what it adds.
struct Names::Kind {
    std::string_view word;
    std::size_t leastWords;
    std::size_t mostWords;
    /// What the words after the first should be.
    std::string_view takes;
    bool (Names::*add)(const Words& words, std::string& problem);
};

const std::array<Names::Kind, 5>& Names::Kinds() {
    static constexpr std::array<Kind, 5> kKinds{
        Kind{"component", 3, 3, "takes a number (at most 127) and a name", &Names::AddComponent},
        Kind{"level", 3, 3, "takes a number (at most 3) and a name", &Names::AddLevel},
        Kind{"thread", 3, 3, "takes a number (at most 4294967295) and a name", &Names::AddThread},
        Kind{"event", 4, 5, "takes a component, an event number, a name and optionally a format",
             &Names::AddEvent},
        Kind{"ring", 4, 5, "takes a ring's name, a code, a name and optionally a format",
             &Names::AddRingEvent}};
    static_assert(kMostComponent == 127 && kMostLevel == 3 && kAnyNumber == 4294967295U);
    return kKinds;
}

Names::Names() {
    using namespace Nima::Catalogue;
    components_[kOwnComponent] = kOwnComponentName;
    for (const OwnEventRow& row : kOwnTraceEvents) {
        events_[{kOwnComponent, row.number}] = NameOf(row);
    }
    events_[{kOwnComponent, kMarkEvent.number}] = NameOf(kMarkEvent);
    for (const OwnEventRow& row : kOwnRingEvents) {
        ringEvents_[{std::string(NameOfRing(kOwnRing)), row.number}] = NameOf(row);
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
    file_ = file->Identity();
    const std::string bytes = file->ReadAll(kMostNamesBytes);
    if (!file->ReadProblem().empty()) {
        problem = path + ": " + file->ReadProblem();
        return false;
    }
    std::string_view rest = bytes;
    for (int number = 1; !rest.empty(); ++number) {
        if (!AddLine(TakeLine(rest), problem)) {
            problem.insert(0, path + ":" + std::to_string(number) + ": ");
            return false;
        }
    }
    return true;
}

bool Names::AddLine(std::string_view line, std::string& problem) {
    Words words;
    problem.clear();
    if (!SplitWords(line, words, problem) || words.empty()) {
        return problem.empty();
    }
    const auto& kinds = Kinds();
    const auto* kind =
        std::find_if(kinds.begin(), kinds.end(), [&](const Kind& each) { return each.word == words[0]; });
    if (kind == kinds.end()) {
        problem = "\"" + words[0] + "\" is not component, level, thread, event or ring";
        return false;
    }
    const bool rightCount = words.size() >= kind->leastWords && words.size() <= kind->mostWords;
    if (rightCount && (this->*kind->add)(words, problem)) {
        return true;
    }
    if (problem.empty()) {
        problem = std::string(kind->word) + ' ' + std::string(kind->takes);
    }
    return false;
}

bool Names::AddNumbered(std::map<std::uint32_t, std::string>& names, const Words& words, std::uint32_t most) {
    std::uint32_t number = 0;
    if (!Number(words[1], most, number)) {
        return false;
    }
    names[number] = words[2];
    return true;
}

bool Names::AddComponent(const Words& words, std::string& /*problem*/) {
    return AddNumbered(components_, words, kMostComponent);
}

bool Names::AddLevel(const Words& words, std::string& /*problem*/) {
    return AddNumbered(levels_, words, kMostLevel);
}

bool Names::AddThread(const Words& words, std::string& /*problem*/) {
    return AddNumbered(threads_, words, kAnyNumber);
}

/// The last words of an event: its number, its name, and optionally a format.
bool Names::TakeEvent(const Words& words, std::uint32_t most, std::uint32_t& number, EventName& event,
                      std::string& problem) {
    if (!Number(words[2], most, number)) {
        return false;
    }
    event.name = words[3];
    if (words.size() == 5) {
        event.format = words[4];
        event.arguments = CountArguments(event.format);
        if (!event.arguments) {
            problem = "the format takes %d %i %u %x %X %o %c %p, one for each 32-bit argument, and %%";
            return false;
        }
    }
    return true;
}

bool Names::AddEvent(const Words& words, std::string& problem) {
    std::uint32_t number = 0;
    EventName event;
    if (!TakeEvent(words, SYSTRACE_EVENT_MASK, number, event, problem)) {
        return false;
    }
    const auto component = FindComponent(words[1]);
    if (!component) {
        problem = "no component \"" + words[1] + "\"";
        return false;
    }
    events_[{*component, number}] = event;
    return true;
}

bool Names::AddRingEvent(const Words& words, std::string& problem) {
    std::uint32_t code = 0;
    EventName event;
    if (!TakeEvent(words, kAnyNumber, code, event, problem)) {
        return false;
    }
    ringEvents_[{words[1], code}] = event;
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

} // namespace NimaPost
