#include "tools/compare/Difference.h"

#include "tools/base/Json.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace NimaPost {

namespace {

using Counts = std::map<Saying, std::uint64_t>;

constexpr std::array kKinds{"text", "binary", "ring", "record"};
constexpr std::array kNameKinds{"tracer", "component", "ring", "event source"};
static_assert(kKinds.size() == kEventKinds && kNameKinds.size() == kEventKinds, "one of each for each kind");

constexpr double kMoreThan = 2;
/// Counts of fewer differ by more than that by chance.
constexpr std::uint64_t kFewest = 10;

Saying NameOf(const Saying& saying) {
    return {saying.kind, "", saying.name, ""};
}

std::vector<OnlyHere> Only(const Counts& here, const Counts& there) {
    std::vector<OnlyHere> only;
    for (const auto& [saying, count] : here) {
        const bool told = !saying.message.empty() && !there.contains(NameOf(saying));
        if (!told && !there.contains(saying)) {
            only.push_back({saying, count});
        }
    }
    // Names come first: each is a part of the device.
    std::stable_sort(only.begin(), only.end(), [](const OnlyHere& a, const OnlyHere& b) {
        return std::pair(a.saying.message.empty(), a.count) > std::pair(b.saying.message.empty(), b.count);
    });
    return only;
}

double Distance(const OtherRate& rate) {
    return std::abs(std::log(rate.Times()));
}

std::string Number(double value) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.3g", value);
    return text.data();
}

/// "10.5 times as often", or "1/10.5 as often".
std::string TimesInWords(const OtherRate& rate) {
    return (rate.Times() < 1 ? "1/" + Number(1 / rate.Times()) : Number(rate.Times()) + " times") +
           " as often";
}

std::string InWords(const Saying& saying) {
    if (saying.message.empty()) {
        return std::string(kNameKinds[static_cast<std::size_t>(saying.kind)]) + " " +
               (saying.name.empty() ? "without a name" : Printable(saying.name));
    }
    std::string text;
    for (const std::string& part : {saying.level, saying.name, saying.message}) {
        text += part.empty() ? "" : (text.empty() ? "" : "  ") + Printable(part);
    }
    return text;
}

Json SayingJson(const Saying& saying) {
    return {{"kind", kKinds[static_cast<std::size_t>(saying.kind)]},
            {"name", ToUtf8(saying.name)},
            {"level", saying.level.empty() ? Json() : Json(ToUtf8(saying.level))},
            {"message", saying.message.empty() ? Json() : Json(ToUtf8(saying.message))}};
}

Json OnlyJson(const std::vector<OnlyHere>& only) {
    Json json = Json::array();
    for (const OnlyHere& each : only) {
        json.push_back(SayingJson(each.saying));
        json.back()["count"] = each.count;
    }
    return json;
}

template <class Thing, class Words>
void AppendPart(std::vector<std::string>& lines, const std::string& title, const std::vector<Thing>& things,
                std::size_t most, const Words& words) {
    if (things.empty()) {
        return;
    }
    lines.push_back(title + " (" + std::to_string(things.size()) + "):");
    for (std::size_t i = 0; i < std::min(things.size(), most); ++i) {
        lines.push_back("  " + words(things[i]));
    }
    if (things.size() > most) {
        lines.push_back("  ... and " + std::to_string(things.size() - most) + " more; --all shows them");
    }
}

} // namespace

Difference Compare(const Profile& first, const Profile& second) {
    const Counts here = first.Counts();
    const Counts there = second.Counts();
    Difference difference{Only(here, there), Only(there, here), {}};
    for (const auto& [saying, count] : here) {
        const auto other = there.find(saying);
        if (other == there.end() || std::max(count, other->second) < kFewest) {
            continue;
        }
        const OtherRate rate{saying, static_cast<double>(count) / first.Seconds(),
                             static_cast<double>(other->second) / second.Seconds()};
        if (rate.Times() > kMoreThan || rate.Times() < 1 / kMoreThan) {
            difference.rates.push_back(rate);
        }
    }
    std::stable_sort(difference.rates.begin(), difference.rates.end(),
                     [](const OtherRate& a, const OtherRate& b) { return Distance(a) > Distance(b); });
    return difference;
}

Json DifferenceJson(const Difference& difference) {
    Json rates = Json::array();
    for (const OtherRate& rate : difference.rates) {
        rates.push_back(SayingJson(rate.saying));
        rates.back()["first_per_second"] = rate.first;
        rates.back()["second_per_second"] = rate.second;
        rates.back()["times"] = rate.Times();
    }
    return {{"only_first", OnlyJson(difference.onlyFirst)},
            {"only_second", OnlyJson(difference.onlySecond)},
            {"rates", rates}};
}

std::vector<std::string> DifferenceInWords(const Difference& difference, const std::string& first,
                                           const std::string& second, std::size_t most) {
    std::vector<std::string> lines;
    const auto only = [](const OnlyHere& each) {
        return std::to_string(each.count) + "x  " + InWords(each.saying);
    };
    AppendPart(lines, "only in " + first, difference.onlyFirst, most, only);
    AppendPart(lines, "only in " + second, difference.onlySecond, most, only);
    AppendPart(lines, "other rates, per second", difference.rates, most, [](const OtherRate& rate) {
        return Number(rate.first) + " -> " + Number(rate.second) + " (" + TimesInWords(rate) + ")  " +
               InWords(rate.saying);
    });
    if (lines.empty()) {
        lines.emplace_back(
            "no tracer, event or message is only in one, and no rate differs by more than twice");
    }
    return lines;
}

} // namespace NimaPost
