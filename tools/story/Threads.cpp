#include "tools/story/Threads.h"

#include "catalogue/Marks.h"
#include "tools/base/Text.h"

namespace NimaPost {

std::optional<std::size_t> Threads::NumberOf(const TimelineEvent& event) {
    if (!event.thread) {
        return std::nullopt;
    }
    Thread& thread = threads_.try_emplace(*event.thread, Thread{threads_.size(), {}}).first->second;
    // The library itself calibrates the log on whichever thread comes along.
    if (thread.tracer.empty() && event.kind == EventKind::kText &&
        event.level != Nima::Catalogue::kCalibrationLevel) {
        thread.tracer = event.name;
    }
    return thread.number;
}

void Threads::ForEach(
    const std::function<void(std::size_t number, std::uint32_t id, const std::string& name)>& visitor) const {
    for (const auto& [id, thread] : threads_) {
        const std::string name = names_.Thread(id);
        visitor(thread.number, id, ToUtf8(name.empty() ? thread.tracer : name));
    }
}

} // namespace NimaPost
