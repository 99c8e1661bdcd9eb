#include "tools/story/Threads.h"

#include "catalogue/Marks.h"
#include "tools/base/Text.h"

namespace NimaPost {

std::optional<std::size_t> Threads::NumberOf(const TimelineEvent& event) {
    if (!event.thread) {
        return std::nullopt;
    }
    Thread& thread = threads_
                         .try_emplace({event.process, *event.thread},
                                      Thread{threads_.size(), event.process, event.boot, *event.thread, {}})
                         .first->second;
    // The library itself calibrates the log on whichever thread comes along.
    if (thread.name.empty() && event.kind == EventKind::kText &&
        event.level != Nima::Catalogue::kCalibrationLevel) {
        thread.name = ToUtf8(event.name);
    }
    return thread.number;
}

void Threads::ForEach(const std::function<void(const Thread& thread)>& visitor) const {
    for (const auto& [key, thread] : threads_) {
        Thread named = thread;
        const std::string name = names_.Thread(thread.id);
        named.name = name.empty() ? thread.name : ToUtf8(name);
        visitor(named);
    }
}

} // namespace NimaPost
