#include "tools/log/LogLine.h"

#include "catalogue/Marks.h"
#include "tools/base/Text.h"

#include <algorithm>

namespace NimaPost {

namespace {

constexpr std::string_view kThreadMark = Nima::Catalogue::kThreadMark;
constexpr std::string_view kLevelEnd = Nima::Catalogue::kLevelEnd;
constexpr std::string_view kTracerEnd = Nima::Catalogue::kTracerEnd;
constexpr std::string_view kCalibration = Nima::Catalogue::kCalibrationLevel;
constexpr std::size_t kLongestLevel = 5;
/// ", type=rdtsc"
constexpr std::size_t kLongestType = 12;
/// "01261024150926." and up to six characters, then the thread mark.
constexpr std::size_t kDateDigits = 14;
constexpr std::size_t kLongestDate = kDateDigits + 7;

/// " <0x250b5740:000> "
bool TakeThreadAndPriority(std::string_view& text, LogLine& line) {
    std::string_view rest = text;
    if (!rest.starts_with(kThreadMark) || rest.size() < kThreadMark.size() + 8 + 1) {
        return false;
    }
    rest.remove_prefix(kThreadMark.size());
    std::string_view digits = rest.substr(0, 8);
    std::uint64_t thread = 0;
    if (!TakeHex(digits, thread) || !digits.empty()) {
        return false;
    }
    rest.remove_prefix(8);
    if (!TakeLiteral(rest, {&Nima::Catalogue::kPriorityMark, 1})) {
        return false;
    }
    // "-01" and "000" are both what three places make of a priority.
    if (!TakeDecimal(rest, line.priority) || !TakeLiteral(rest, Nima::Catalogue::kHeaderEnd)) {
        return false;
    }
    line.thread = static_cast<std::uint32_t>(thread);
    text = rest;
    return true;
}

bool IsLevel(std::string_view text) {
    return text == kCalibration ||
           std::find(kLevelNames.begin(), kLevelNames.end(), text) != kLevelNames.end();
}

/// "<WARN> <Engine> message", or text without these.
void ReadBody(std::string_view body, LogLine& line) {
    line.message = body;
    if (!body.starts_with(Nima::Catalogue::kLevelBegin)) {
        return;
    }
    const std::size_t levelEnd = body.substr(0, kLongestLevel + 4).find(kLevelEnd);
    if (levelEnd == std::string_view::npos || !IsLevel(body.substr(1, levelEnd - 1))) {
        return;
    }
    const std::size_t nameEnd = body.find(kTracerEnd, levelEnd + kLevelEnd.size());
    if (nameEnd == std::string_view::npos) {
        return;
    }
    line.level = body.substr(1, levelEnd - 1);
    line.tracer = body.substr(levelEnd + kLevelEnd.size(), nameEnd - levelEnd - kLevelEnd.size());
    line.message = body.substr(nameEnd + kTracerEnd.size());
}

/// "0x250b5740", or what is left of it.
bool IsRestOfThread(std::string_view text, bool whole) {
    constexpr std::string_view kPrefix = "0x";
    constexpr std::size_t kDigits = 8;
    const std::size_t digits = std::min(text.size(), kDigits);
    const std::string_view prefix = text.substr(0, text.size() - digits);
    return text.find_first_not_of("0123456789abcdef", prefix.size()) == std::string_view::npos &&
           (whole ? prefix == kPrefix : kPrefix.ends_with(prefix));
}

/// "000" or "-01".
bool IsPriority(std::string_view text) {
    std::int64_t priority = 0;
    return text.size() >= 3 && TakeDecimal(text, priority) && text.empty();
}

} // namespace

LogLine ParseLogLine(std::string_view text) {
    text = WithoutLineEnd(text);
    LogLine line;
    std::string_view rest = text;
    if (TakeDecimal(rest, line.counter) && TakeThreadAndPriority(rest, line)) {
        line.hasHeader = line.stamped = true;
        ReadBody(rest, line);
    } else {
        line.counter = 0;
        line.priority = 0;
        line.message = text;
    }
    return line;
}

LogLine ParseQueueRecord(std::string_view text) {
    text = WithoutLineEnd(text);
    LogLine line;
    std::string_view rest = text;
    line.date = TakeCompactDate(rest);
    if (line.date && TakeThreadAndPriority(rest, line)) {
        line.hasHeader = line.stamped = true;
        ReadBody(rest, line);
    } else {
        line.date.reset();
        line.message = text;
    }
    return line;
}

std::optional<RawDate> CalibrationDate(const LogLine& line) {
    constexpr std::string_view kDate = Nima::Catalogue::kCalibrationDate;
    const std::size_t at = line.message.find(kDate);
    if (!IsCalibration(line) || at == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view rest = line.message.substr(at + kDate.size());
    const auto date = TakeCompactDate(rest);
    // Where the line was cut the last digits may be gone.
    return rest.starts_with(Nima::Catalogue::kCalibrationType) ? date : std::nullopt;
}

std::optional<std::uint32_t> OrderedThread(const LogLine& line) {
    return IsCalibration(line) ? std::nullopt : std::optional(line.thread);
}

bool IsCalibration(const LogLine& line) {
    return line.level == kCalibration;
}

std::optional<FoundCalibration> FindCalibration(std::string_view text) {
    text = WithoutLineEnd(text);
    const std::size_t end = text.size() - std::min(text.size(), kLongestType);
    if (text.substr(end).find(Nima::Catalogue::kCalibrationType) == std::string_view::npos) {
        return std::nullopt;
    }
    const std::size_t thread = text.rfind(kThreadMark);
    if (thread == std::string_view::npos) {
        return std::nullopt;
    }
    LogLine line;
    std::string_view rest = text.substr(thread);
    if (!TakeThreadAndPriority(rest, line)) {
        return std::nullopt;
    }
    ReadBody(rest, line);
    const std::size_t before = text.substr(0, thread).find_last_not_of("0123456789");
    const std::size_t digits = before == std::string_view::npos ? 0 : before + 1;
    return digits < thread && IsCalibration(line) ? std::optional(FoundCalibration{digits, thread})
                                                  : std::nullopt;
}

HeaderRest RestOfHeader(std::string_view text) {
    const std::size_t at = text.substr(0, 64).find(kLevelEnd);
    if (at == std::string_view::npos) {
        return HeaderRest::kNone;
    }
    const std::size_t open = text.rfind('<', at);
    const bool marked = open != std::string_view::npos;
    const std::string_view before = marked ? text.substr(open + 1, at - open - 1) : text.substr(0, at);
    const std::size_t colon = before.find(Nima::Catalogue::kPriorityMark);
    if (colon != std::string_view::npos) {
        return !IsRestOfThread(before.substr(0, colon), marked) || !IsPriority(before.substr(colon + 1))
                   ? HeaderRest::kNone
               : marked || colon == 0 ? HeaderRest::kMark
                                      : HeaderRest::kInside;
    }
    const auto ends = [&](std::string_view level) { return level.ends_with(before); };
    if (IsLevel(before) || (!marked && before.empty())) {
        return HeaderRest::kMark;
    }
    return !marked && (ends(kCalibration) || std::any_of(kLevelNames.begin(), kLevelNames.end(), ends))
               ? HeaderRest::kInside
               : HeaderRest::kNone;
}

std::size_t FindQueueRecord(std::string_view text, std::size_t from) {
    std::size_t mark = text.find(kThreadMark, from);
    for (; mark != std::string_view::npos; mark = text.find(kThreadMark, mark + 1)) {
        for (std::size_t length = kDateDigits + 2; length <= kLongestDate && length <= mark; ++length) {
            std::string_view rest = text.substr(mark - length);
            LogLine line;
            if (mark - length >= from && TakeCompactDate(rest) && rest.data() == text.data() + mark &&
                TakeThreadAndPriority(rest, line)) {
                return mark - length;
            }
        }
    }
    return text.size();
}

std::optional<LogKind> LogKindOf(std::string_view front) {
    const std::string_view line = front.substr(0, front.find('\n'));
    if (ParseQueueRecord(line).hasHeader) {
        return LogKind::kQueue;
    }
    // The first line may be torn, but not all of them.
    std::string_view rest = front;
    for (int lines = 0; lines < 64 && !rest.empty(); ++lines) {
        if (ParseLogLine(TakeLine(rest)).hasHeader) {
            return LogKind::kLines;
        }
    }
    if (FindQueueRecord(front, 0) < front.size()) {
        return LogKind::kQueue;
    }
    return std::nullopt;
}

} // namespace NimaPost
