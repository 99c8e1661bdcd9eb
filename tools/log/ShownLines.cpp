#include "tools/log/ShownLines.h"

namespace NimaPost {

void ShownLines::Take(const LogEntry& entry) {
    if (!entry.continued) {
        Finish();
        waiting_ = 0;
    }
    fate_ = filter_.Judge(entry.line, entry.text);
    if (fate_ == LogFilter::Fate::kShow) {
        ShowKept();
        show_(entry);
    } else if (fate_ != LogFilter::Fate::kHide) {
        if (waiting_ == kMostWaiting) {
            Finish();
        }
        Keep(entry);
    } else {
        waiting_ = 0;
    }
}

void ShownLines::Finish() {
    if (fate_ == LogFilter::Fate::kUnlessBad) {
        ShowKept();
    }
}

void ShownLines::ShowKept() {
    for (std::size_t i = 0; i < waiting_; ++i) {
        show_(kept_[i].entry);
    }
    waiting_ = 0;
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
