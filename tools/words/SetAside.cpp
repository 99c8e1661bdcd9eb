#include "tools/words/SetAside.h"

#include "catalogue/OwnEvents.h"
#include "tools/base/Text.h"

namespace NimaPost {

const char* const kSetAside =
    "Either a dump runs or was killed, or levels were closed after a repair; the filters look the same.";

std::optional<std::size_t> EntriesSinceDumpBegan(std::span<const SysTraceEntry> entries) {
    using Event = Nima::Catalogue::OwnTraceEvent;
    const auto is = [](const SysTraceEntry& entry, Event event) {
        return entry.id == Nima::Catalogue::IdOf(event);
    };
    for (std::size_t i = entries.size(); i > 0; --i) {
        const SysTraceEntry& entry = entries[i - 1];
        if (is(entry, Event::kFileDumpEnds) || is(entry, Event::kCallbackDumpEnds)) {
            break;
        }
        if (is(entry, Event::kFileDumpStarts) || is(entry, Event::kCallbackDumpStarts)) {
            return entries.size() - i;
        }
    }
    return std::nullopt;
}

std::string SetAsideHint(std::optional<std::size_t> sinceDumpBegan, bool nothingPasses) {
    constexpr std::size_t kBegun = 1024;
    if (!sinceDumpBegan) {
        return {};
    }
    const std::string dump = "a dump began that has not ended, ";
    if (*sinceDumpBegan <= kBegun) {
        return " The trace stops where " + dump + "which speaks for the dump.";
    }
    return nothingPasses ? " After " + dump + Counted(*sinceDumpBegan, "entry") +
                               " were traced, which speaks for closed levels."
                         : "";
}

} // namespace NimaPost
