#include "tools/story/TimeBound.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"
#include "tools/base/TimeText.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace NimaPost {

void Landmarks::Widen(std::int64_t time) {
    first = std::min(first.value_or(time), time);
    last = std::max(last.value_or(time), time);
}

std::map<std::size_t, std::int64_t> BeginningsOf(const Processes& processes) {
    std::map<std::size_t, std::int64_t> boots;
    for (const ProcessFacts& facts : processes.All()) {
        if (facts.boot && facts.first) {
            const auto known = boots.try_emplace(*facts.boot, *facts.first).first;
            known->second = std::min(known->second, *facts.first);
        }
    }
    return boots;
}

std::optional<TimeBound> TimeBound::Parse(const std::string& text, std::string& problem) {
    if (const auto date = ParseDate(text)) {
        TimeBound bound(text, Kind::kDate);
        bound.time_ = *date;
        return bound;
    }
    if (const auto ofDay = ParseTimeOfDay(text)) {
        TimeBound bound(text, Kind::kTimeOfDay);
        bound.time_ = *ofDay;
        return bound;
    }
    auto anchor = ParseAnchor(text);
    if (!anchor) {
        problem =
            "no time \"" + text +
            "\": a date (\"2026-11-24 15:09:26\"), a time of day (15:09), or crash, crash=2, boot, boot=2, "
            "start or end, with a distance (crash-30s, boot+5m)";
    }
    return anchor;
}

std::optional<TimeBound> TimeBound::ParseAnchor(const std::string& text) {
    constexpr std::array<std::pair<std::string_view, Kind>, 4> kAnchors{
        {{"crash", Kind::kCrash}, {"boot", Kind::kBoot}, {"start", Kind::kStart}, {"end", Kind::kEnd}}};
    std::string_view rest = text;
    // "+12.5" counts from the start, as undated times are shown.
    const auto* anchor = std::find_if(kAnchors.begin(), kAnchors.end(),
                                      [&](const auto& each) { return TakeLiteral(rest, each.first); });
    if (anchor == kAnchors.end() && !rest.starts_with('+')) {
        return std::nullopt;
    }
    TimeBound bound(text, anchor == kAnchors.end() ? Kind::kStart : anchor->second);
    const bool numbered = bound.kind_ == Kind::kCrash || bound.kind_ == Kind::kBoot;
    if (numbered && TakeLiteral(rest, "=")) {
        std::int64_t number = 0;
        if (!TakeDecimal(rest, number) || number < 1) {
            return std::nullopt;
        }
        bound.number_ = static_cast<std::size_t>(number);
    }
    if (rest.empty()) {
        return bound;
    }
    const bool before = rest.front() == '-';
    if (!before && rest.front() != '+') {
        return std::nullopt;
    }
    const auto distance = ParseDuration(rest.substr(1));
    bound.time_ = before ? -distance.value_or(0) : distance.value_or(0);
    return distance ? std::optional(bound) : std::nullopt;
}

bool TimeBound::NeedsEnds() const {
    return kind_ == Kind::kTimeOfDay || kind_ == Kind::kStart || kind_ == Kind::kEnd;
}

std::optional<std::int64_t> TimeBound::Find(const Landmarks& landmarks, std::optional<std::int64_t> after,
                                            std::string& problem) const {
    if (kind_ != Kind::kDate && kind_ != Kind::kTimeOfDay) {
        const auto anchor = FindAnchor(landmarks, problem);
        return anchor ? std::optional(*anchor + time_) : std::nullopt;
    }
    if (!landmarks.hasWall) {
        problem =
            "\"" + text_ + "\": nothing that was read is dated; count from start or end (start+12s, end-1m)";
        return std::nullopt;
    }
    if (kind_ == Kind::kDate) {
        return time_;
    }
    const std::int64_t near = after ? *after : landmarks.last.value_or(0);
    const std::int64_t sameDay = near - Modulo(near, kDay) + time_;
    return after ? (sameDay < near ? sameDay + kDay : sameDay) : (sameDay > near ? sameDay - kDay : sameDay);
}

std::optional<std::int64_t> TimeBound::FindAnchor(const Landmarks& landmarks, std::string& problem) const {
    if (kind_ == Kind::kCrash) {
        return FindCrash(landmarks, problem);
    }
    if (kind_ == Kind::kBoot) {
        return FindBoot(landmarks, problem);
    }
    const auto& found = kind_ == Kind::kStart ? landmarks.first : landmarks.last;
    if (!found) {
        problem = "\"" + text_ + "\": nothing that was read has a time";
    }
    return found;
}

std::optional<std::int64_t> TimeBound::FindCrash(const Landmarks& landmarks, std::string& problem) const {
    const std::size_t count = landmarks.crashes.size();
    const std::size_t number = number_.value_or(count);
    if (number == 0 || number > count) {
        problem =
            "\"" + text_ + "\": " +
            (count == 0 ? "there is no crash in what was read"
                        : "there is no crash " + std::to_string(number) + ", only " + std::to_string(count));
        return std::nullopt;
    }
    const auto time = landmarks.crashes[number - 1];
    if (!time) {
        problem = "\"" + text_ + "\": nothing tells when crash " + std::to_string(number) + " was";
    }
    return time;
}

std::optional<std::int64_t> TimeBound::FindBoot(const Landmarks& landmarks, std::string& problem) const {
    if (!number_ && !landmarks.boots.empty()) {
        return landmarks.boots.rbegin()->second;
    }
    const auto found = number_ ? landmarks.boots.find(*number_) : landmarks.boots.end();
    if (found == landmarks.boots.end()) {
        problem = "\"" + text_ + "\": " +
                  (number_ && !landmarks.boots.empty() ? "there is no boot " + std::to_string(*number_)
                                                       : "no boot is known in what was read");
        return std::nullopt;
    }
    return found->second;
}

} // namespace NimaPost
