#include "ctl/FilterText.h"

#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/words/SetAside.h"
#include "tools/words/Words.h"

#include <algorithm>

namespace NimaCtl {

namespace {

constexpr std::size_t kLineWidth = 100;

/// In lines that end after a comma.
void Fold(NimaPost::Output& out, std::string margin, std::string_view text) {
    constexpr std::string_view kComma = ", ";
    while (text.size() > kLineWidth) {
        const std::size_t last = text.substr(0, kLineWidth).rfind(kComma);
        const std::size_t comma = last != std::string_view::npos ? last : text.find(kComma);
        if (comma == std::string_view::npos) {
            break;
        }
        out.Line(margin + std::string(text.substr(0, comma + 1)));
        text.remove_prefix(comma + kComma.size());
        margin.assign(margin.size(), ' ');
    }
    out.Line(margin + std::string(text));
}

} // namespace

std::string SetAsideText() {
    return std::string(NimaPost::kSetAside) + " \"nima-ctl repair\" brings the saved filter back.";
}

std::string_view FilteringName(Filtering state) {
    switch (state) {
        case Filtering::kOn:
            return "on";
        case Filtering::kOff:
            return "off";
        case Filtering::kCleared:
            return "cleared";
        default:
            return "partly cleared";
    }
}

std::string_view FilteringText(Filtering state) {
    switch (state) {
        case Filtering::kOn:
            return "on";
        case Filtering::kOff:
            return "off: the filter lets nothing through";
        case Filtering::kCleared:
            return "cleared: the filter lets nothing through, and one is set aside";
        default:
            return "partly cleared: a filter is set aside that lets more through";
    }
}

std::string FilterText(const Filter& filter, const Names& names) {
    return NimaPost::Printable(NimaPost::FilterInWords(filter, names));
}

void PrintFilter(NimaPost::Output& out, const std::string& label, const Filter& filter, const Names& names) {
    constexpr std::string_view kNextLevel = "; ";
    const std::string text = FilterText(filter, names);
    if (text.size() <= kLineWidth) {
        out.Line(label + text);
        return;
    }
    std::string margin = label;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find(kNextLevel, begin), text.size());
        Fold(out, margin, std::string_view(text).substr(begin, end - begin));
        begin = end + kNextLevel.size();
        margin.assign(label.size(), ' ');
    }
}

void PrintFilters(NimaPost::Output& out, const std::string& label, const Filters& filters,
                  const Names& names) {
    PrintFilter(out, label + "live   ", filters.live, names);
    PrintFilter(out, std::string(label.size(), ' ') + "saved  ", filters.saved, names);
}

Json FilterJson(const Filter& filter, const Names& names) {
    return {{"words", filter}, {"text", NimaPost::ToUtf8(NimaPost::FilterInWords(filter, names))}};
}

Json FiltersJson(const Filters& filters, const Names& names) {
    return {{"live", FilterJson(filters.live, names)}, {"saved", FilterJson(filters.saved, names)}};
}

} // namespace NimaCtl
