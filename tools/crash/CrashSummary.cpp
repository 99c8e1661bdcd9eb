#include "tools/crash/CrashSummary.h"

#include "catalogue/Marks.h"
#include "tools/base/Text.h"
#include "tools/rings/Merge.h"

#include <algorithm>
#include <array>

namespace NimaPost {

std::vector<ActiveRing> ActiveRings(const RingSet& set) {
    std::vector<ActiveRing> active;
    for (const MergedRecord& each : MergeRings(set)) {
        const auto known = std::find_if(active.begin(), active.end(),
                                        [&](const ActiveRing& other) { return other.ring == each.ring; });
        if (known != active.end()) {
            known->newest = each.time;
        } else {
            active.push_back({each.ring, each.time});
        }
    }
    std::stable_sort(active.begin(), active.end(),
                     [](const ActiveRing& a, const ActiveRing& b) { return a.newest > b.newest; });
    return active;
}

std::vector<std::pair<std::string, std::string>> FailureInWords(const CrashLog& log,
                                                                const std::string& when) {
    using namespace Nima::Catalogue;
    struct Label {
        std::string_view inLog, shown, prefix;
    };
    constexpr std::array kLabels{
        Label{kErrorCode, "error code", "0x"}, Label{kFileName, "file", ""},
        Label{kLineNumber, "line", ""},        Label{kExceptionCode, "exception", "0x"},
        Label{kFaultAddress, "address", "0x"}, Label{kCrashType, "crash type", ""},
        Label{kBootCycle, "boot cycle", ""}};
    std::vector<std::pair<std::string, std::string>> words;
    if (!when.empty()) {
        words.emplace_back("when", when);
    }
    if (log.ticks) {
        words.emplace_back("counter", std::to_string(*log.ticks));
    }
    for (const Label& label : kLabels) {
        const std::string_view value = log.Field(label.inLog);
        if (!value.empty()) {
            words.emplace_back(label.shown, std::string(label.prefix) + std::string(value));
        }
    }
    if (!log.extraData.empty()) {
        std::string extra;
        for (const std::string& word : log.extraData) {
            extra += extra.empty() ? "" : " ";
            extra += word;
        }
        words.emplace_back("extra words", extra);
    }
    return words;
}

} // namespace NimaPost
