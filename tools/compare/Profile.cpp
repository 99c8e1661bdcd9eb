#include "tools/compare/Profile.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <array>

namespace NimaPost {

namespace {

/// Firmware has some thousand; what has more than this builds its messages from something else than numbers.
constexpr std::size_t kMostSayings = 100'000;

bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsHex(char c) {
    return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

/// Appends a run of letters and digits, which holds a digit.
void AppendWord(std::string& out, std::string_view word) {
    constexpr std::size_t kShortestHex = 4;
    const std::string_view digits = word.starts_with("0x") || word.starts_with("0X") ? word.substr(2) : word;
    const bool isHex = std::all_of(digits.begin(), digits.end(), IsHex);
    if (isHex && (digits.size() < word.size() || digits.size() >= kShortestHex)) {
        out += '#';
        return;
    }
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (!IsDigit(word[i])) {
            out += word[i];
        } else if (i == 0 || !IsDigit(word[i - 1])) {
            out += '#';
        }
    }
}

/// A sign belongs to a number where nothing comes before it that it could join.
bool EndsWithSign(const std::string& text) {
    const std::size_t size = text.size();
    return size != 0 && (text[size - 1] == '-' || text[size - 1] == '+') &&
           (size == 1 || text[size - 2] == ' ' || text[size - 2] == '=' || text[size - 2] == '(' ||
            text[size - 2] == ':');
}

} // namespace

std::string WithoutNumbers(std::string_view message) {
    std::string out;
    out.reserve(message.size());
    std::size_t at = 0;
    while (at < message.size()) {
        std::size_t end = at;
        bool number = false;
        while (end < message.size() && (IsDigit(message[end]) || IsLetter(message[end]))) {
            number = number || IsDigit(message[end]);
            ++end;
        }
        if (end == at) {
            out += message[at++];
            continue;
        }
        const std::string_view word = message.substr(at, end - at);
        at = end;
        if (!number) {
            out += word;
            continue;
        }
        if (IsDigit(word.front()) && EndsWithSign(out)) {
            out.pop_back();
        }
        AppendWord(out, word);
        // "12.5" is one number, and so is "1.2.3".
        if (out.ends_with("#.#")) {
            out.resize(out.size() - 2);
        }
    }
    return out;
}

void Profile::Count(const TimelineEvent& event, std::string_view message) {
    key_.assign(1, static_cast<char>(event.kind));
    for (const std::string_view part :
         {message.empty() ? std::string_view() : event.level, event.name, message}) {
        key_ += part;
        key_ += '\0';
    }
    const auto known = counts_.find(key_);
    if (known != counts_.end()) {
        ++known->second;
    } else if (counts_.size() < kMostSayings) {
        counts_.emplace(key_, 1);
    } else {
        cut_ = true;
    }
}

void Profile::Take(const TimelineEvent& event) {
    const bool isOutside = (begin_ || end_) && (!event.time || (begin_ && *event.time < *begin_) ||
                                                (end_ && *event.time >= *end_));
    if (isOutside || event.IsRest()) {
        return;
    }
    ++records_;
    Count(event, {});
    if (!event.text.empty()) {
        Count(event, WithoutNumbers(event.text));
    }
    if (event.time) {
        const std::pair stretch(event.boot.has_value(), event.boot ? *event.boot : event.process.value_or(0));
        auto& [first, last] =
            stretches_.try_emplace(stretch, Stretch{*event.time, *event.time}).first->second;
        first = std::min(first, *event.time);
        last = std::max(last, *event.time);
    }
}

std::map<Saying, std::uint64_t> Profile::Counts() const {
    std::map<Saying, std::uint64_t> sorted;
    for (const auto& [key, count] : counts_) {
        std::string_view rest = std::string_view(key).substr(1);
        std::array<std::string, 3> parts;
        for (std::string& part : parts) {
            // A message from a device may hold zeros itself, and comes last.
            const std::size_t end = &part == &parts.back() ? rest.size() - 1 : rest.find('\0');
            part = rest.substr(0, end);
            rest.remove_prefix(end + 1);
        }
        sorted[{static_cast<EventKind>(key.front()), parts[0], parts[1], parts[2]}] += count;
    }
    return sorted;
}

double Profile::Seconds() const {
    double sum = 0;
    for (const auto& [key, stretch] : stretches_) {
        sum += static_cast<double>(stretch.last - stretch.first) / static_cast<double>(kSecond);
    }
    return std::max(sum, 1.0);
}

} // namespace NimaPost
