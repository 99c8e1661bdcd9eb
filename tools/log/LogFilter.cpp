#include "tools/log/LogFilter.h"

#include "catalogue/Marks.h"
#include "tools/base/Text.h"

#include <algorithm>

namespace NimaPost {

bool LogFilter::AddLevel(std::string_view text) {
    const bool graver = text.ends_with('+');
    if (graver) {
        text.remove_suffix(1);
    }
    const auto found = std::find_if(kLevelNames.begin(), kLevelNames.end(),
                                    [&](std::string_view level) { return EqualNoCase(level, text); });
    if (found == kLevelNames.end()) {
        if (!graver && EqualNoCase(text, Nima::Catalogue::kCalibrationLevel)) {
            levels_.emplace_back(Nima::Catalogue::kCalibrationLevel);
            return true;
        }
        return false;
    }
    levels_.insert(levels_.end(), graver ? kLevelNames.begin() : found, found + 1);
    return true;
}

bool LogFilter::AddThread(std::string_view text) {
    std::uint64_t thread = 0;
    if (!ParseNumber(text, thread) || thread > 0xFFFFFFFF) {
        return false;
    }
    threads_.push_back(static_cast<std::uint32_t>(thread));
    return true;
}

void LogFilter::Restart() {
    message_ = Fate::kShow;
    if (texts_ != nullptr) {
        texts_->Restart();
    }
}

LogFilter::Fate LogFilter::Judge(const LogEntry& entry) {
    const LogLine& line = entry.line;
    if (!entry.continued) {
        // One of which the header is lost could be any.
        const bool admitted = !line.hasHeader || AdmitsHeader(line.level, line.tracer, line.thread);
        message_ = !admitted ? Fate::kHide : texts_ != nullptr ? texts_->Begin(entry.text) : Fate::kShow;
    } else if (message_ != Fate::kHide && texts_ != nullptr) {
        message_ = texts_->Continue(entry.text);
    }
    return message_;
}

bool LogFilter::AdmitsHeader(std::string_view level, std::string_view tracer, std::uint32_t thread) const {
    const auto in = [](const auto& wanted, const auto& value) {
        return wanted.empty() || std::find(wanted.begin(), wanted.end(), value) != wanted.end();
    };
    return in(levels_, level) && in(tracers_, tracer) && in(threads_, thread);
}

} // namespace NimaPost
