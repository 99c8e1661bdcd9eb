#include "ctl/FilterText.h"

#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/words/Words.h"

namespace NimaCtl {

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
            return "cleared: a dump has set the filter aside; if it was killed, \"nima-ctl repair\" brings "
                   "the "
                   "filter back";
        default:
            return "partly cleared: a dump has set the filter aside, and levels were opened since; if the "
                   "dump "
                   "was killed, \"nima-ctl repair\" brings the rest back";
    }
}

std::string FilterText(const Filter& filter, const Names& names) {
    return NimaPost::Printable(NimaPost::FilterInWords(filter, names));
}

Json FilterJson(const Filter& filter, const Names& names) {
    return {{"words", filter}, {"text", NimaPost::ToUtf8(NimaPost::FilterInWords(filter, names))}};
}

} // namespace NimaCtl
