#include "tools/log/ShownLines.h"

namespace NimaPost {

void ShownLines::Take(const LogEntry& entry) {
    const LogFilter::Fate fate = filter_.Judge(entry.line, entry.text);
    if (!entry.continued) {
        waiting_ = 0;
    }
    if (fate == LogFilter::Fate::kUndecided) {
        Keep(entry);
    } else if (fate == LogFilter::Fate::kShow) {
        for (std::size_t i = 0; i < waiting_; ++i) {
            show_(kept_[i].entry);
        }
        waiting_ = 0;
        show_(entry);
    }
}

void ShownLines::Keep(const LogEntry& entry) {
    if (waiting_ == kMostWaiting) {
        return;
    }
    if (waiting_ == kept_.size()) {
        kept_.emplace_back();
    }
    Kept& kept = kept_[waiting_++];
    kept.text = entry.text;
    kept.entry = entry;
    kept.entry.text = kept.text;
    kept.entry.line = entry.line.date ? ParseQueueRecord(kept.text) : ParseLogLine(kept.text);
}

} // namespace NimaPost
