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

void LogFilter::SetText(const std::string& text, bool ignoreCase) {
    text_ = text;
    if (ignoreCase) {
        anyCase_.emplace(text_.cbegin(), text_.cend(), AnyCaseHash(), AnyCaseEqual());
    }
}

LogFilter::Fate LogFilter::Judge(const LogLine& line, std::string_view text) {
    if (line.hasHeader) {
        message_ = !AdmitsHeader(line) ? Fate::kHide : HoldsText(text) ? Fate::kShow : Fate::kUndecided;
    } else if (message_ == Fate::kUndecided && HoldsText(text)) {
        message_ = Fate::kShow;
    }
    return message_;
}

bool LogFilter::AdmitsHeader(const LogLine& line) const {
    const auto in = [](const auto& wanted, const auto& value) {
        return wanted.empty() || std::find(wanted.begin(), wanted.end(), value) != wanted.end();
    };
    return in(levels_, line.level) && in(tracers_, line.tracer) && in(threads_, line.thread);
}

bool LogFilter::HoldsText(std::string_view text) const {
    return anyCase_ ? std::search(text.begin(), text.end(), *anyCase_) != text.end()
                    : text.find(text_) != std::string_view::npos;
}

namespace {

unsigned char LowerCase(char c) {
    return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

} // namespace

std::size_t LogFilter::AnyCaseHash::operator()(char c) const {
    return LowerCase(c);
}

bool LogFilter::AnyCaseEqual::operator()(char a, char b) const {
    return LowerCase(a) == LowerCase(b);
}

} // namespace NimaPost
