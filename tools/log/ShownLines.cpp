#include "tools/log/ShownLines.h"

#include <string_view>

namespace NimaPost {

void KeptEntry::Assign(const LogEntry& entry) {
    text_ = entry.text;
    entry_ = entry;
    entry_.text = text_;
    for (std::string_view* const part : {&entry_.line.level, &entry_.line.tracer, &entry_.line.message}) {
        if (!part->empty()) {
            *part = {text_.data() + (part->data() - entry.text.data()), part->size()};
        }
    }
}

void ShownLines::Take(const LogEntry& entry) {
    if (!entry.continued) {
        messages_.Begin();
    }
    messages_.Decide(filter_.Judge(entry));
    messages_.Take(entry);
}

} // namespace NimaPost
