#include "tools/log/LogLine.h"

#include "catalogue/Marks.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace NimaPost {

namespace {

constexpr std::string_view kThreadMark = Nima::Catalogue::kThreadMark;
constexpr std::string_view kLevelEnd = Nima::Catalogue::kLevelEnd;
constexpr std::string_view kTracerEnd = Nima::Catalogue::kTracerEnd;
constexpr std::string_view kHeaderEnd = Nima::Catalogue::kHeaderEnd;
constexpr std::string_view kCalibration = Nima::Catalogue::kCalibrationLevel;
constexpr std::string_view kCalibrationBegin = "<CAL>";
/// ", type=rdtsc"
constexpr std::size_t kLongestType = 12;
/// "01261024150926." and up to six characters, then the thread mark.
constexpr std::size_t kDateDigits = 14;
constexpr std::size_t kLongestDate = kDateDigits + 7;

/// What each character is worth as a hexadecimal digit; 0xFF for one that is none.
constexpr auto kHexValues = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(0xFF);
    for (std::uint8_t i = 0; i < 10; ++i) {
        values['0' + i] = i;
    }
    for (std::uint8_t i = 10; i < 16; ++i) {
        values['a' + i - 10] = values['A' + i - 10] = i;
    }
    return values;
}();

/// Eight digits, of a text that has as many characters.
inline bool ReadThread(const char* text, std::uint32_t& thread) {
    const auto digit = [&](std::size_t i) -> std::uint32_t {
        return kHexValues[static_cast<unsigned char>(text[i])];
    };
    const auto four = [&](std::size_t i) {
        return digit(i) << 12 | digit(i + 1) << 8 | digit(i + 2) << 4 | digit(i + 3);
    };
    const auto most = [&](std::size_t i) { return digit(i) | digit(i + 1) | digit(i + 2) | digit(i + 3); };
    thread = four(0) << 16 | (four(4) & 0xFFFFU);
    return (most(0) | most(4)) < 16;
}

/// " <0x250b5740:000> "
bool TakeThreadAndPriority(std::string_view& text, LogLine& line) {
    std::string_view rest = text;
    if (!rest.starts_with(kThreadMark) || rest.size() < kThreadMark.size() + 8 + 1) {
        return false;
    }
    rest.remove_prefix(kThreadMark.size());
    std::uint32_t thread = 0;
    if (!ReadThread(rest.data(), thread)) {
        return false;
    }
    rest.remove_prefix(8);
    if (!TakeLiteral(rest, {&Nima::Catalogue::kPriorityMark, 1})) {
        return false;
    }
    // "-01" and "000" are both what three places make of a priority.
    if (!TakeDecimal(rest, line.priority) || !TakeLiteral(rest, kHeaderEnd)) {
        return false;
    }
    line.thread = thread;
    text = rest;
    return true;
}

/// The value of the eight characters at the front of a text, or nothing if they are not all digits. All are
/// looked at together, since a counter is read for each line of a log.
std::optional<std::int64_t> ReadEightDigits(const char* text) {
    if constexpr (std::endian::native != std::endian::little) {
        return std::nullopt;
    }
    constexpr std::uint64_t kHighHalves = 0xF0F0F0F0F0F0F0F0;
    constexpr std::uint64_t kZeros = 0x3030303030303030;
    constexpr std::uint64_t kSixes = 0x0606060606060606;
    std::uint64_t value = 0;
    std::memcpy(&value, text, sizeof value);
    if ((value & kHighHalves) != kZeros || ((value + kSixes) & kHighHalves) != kZeros) {
        return std::nullopt;
    }
    // Digits to pairs, to fours, to eight.
    value = (value - kZeros) * (1 + (10U << 8)) >> 8;
    value = (value & 0x00FF00FF00FF00FF) * (1 + (100U << 16)) >> 16;
    value = (value & 0x0000FFFF0000FFFF) * (1 + (std::uint64_t{10000} << 32)) >> 32;
    return static_cast<std::int64_t>(value);
}

/// Reads the header of nearly all lines, "288508338 <0x979fe6c0:000> ", and returns how long it is; 0 for any
/// other.
std::size_t ReadUsualHeader(std::string_view text, LogLine& line) {
    constexpr std::size_t kPriority = kThreadMark.size() + 8 + 1;
    constexpr std::size_t kAfterCounter = kPriority + 3 + kHeaderEnd.size();
    // So many digits fit whatever they are.
    constexpr std::size_t kSureDigits = 18;
    std::int64_t counter = 0;
    std::size_t digits = 0;
    if (const auto eight = text.size() > kAfterCounter ? ReadEightDigits(text.data()) : std::nullopt) {
        counter = *eight;
        digits = 8;
    }
    for (const std::size_t most = std::min(text.size(), kSureDigits); digits < most && IsDigit(text[digits]);
         ++digits) {
        counter = counter * 10 + (text[digits] - '0');
    }
    if (digits == 0 || text.size() < digits + kAfterCounter) {
        return 0;
    }
    const char* const rest = text.data() + digits;
    const char* const priority = rest + kPriority;
    std::uint32_t thread = 0;
    if (std::memcmp(rest, kThreadMark.data(), kThreadMark.size()) != 0 ||
        !ReadThread(rest + kThreadMark.size(), thread) || priority[-1] != Nima::Catalogue::kPriorityMark ||
        !IsDigit(priority[0]) || !IsDigit(priority[1]) || !IsDigit(priority[2]) ||
        std::memcmp(priority + 3, kHeaderEnd.data(), kHeaderEnd.size()) != 0) {
        return 0;
    }
    line.hasHeader = line.stamped = true;
    line.counter = counter;
    line.thread = thread;
    line.priority = (priority[0] - '0') * 100 + (priority[1] - '0') * 10 + (priority[2] - '0');
    return digits + kAfterCounter;
}

/// Reads any header, and takes it off the text.
bool TakeHeader(std::string_view& text, LogLine& line) {
    std::string_view rest = text;
    if (const std::size_t length = ReadUsualHeader(text, line)) {
        text.remove_prefix(length);
        return true;
    }
    if (!TakeDecimal(rest, line.counter) || !TakeThreadAndPriority(rest, line)) {
        line.counter = 0;
        line.priority = 0;
        return false;
    }
    line.hasHeader = line.stamped = true;
    text = rest;
    return true;
}

/// How long the level is that a text begins with and that ends there; 0 for none.
std::size_t LevelLength(std::string_view text) {
    for (const std::size_t length : {4U, 5U, 3U}) {
        if (text.size() < length + kLevelEnd.size() || text[length] != kLevelEnd[0]) {
            continue;
        }
        const auto is = [&](std::string_view level) {
            return level.size() == length && std::memcmp(level.data(), text.data(), level.size()) == 0;
        };
        const bool known = text.substr(length).starts_with(kLevelEnd) &&
                           (is(kCalibration) || std::any_of(kLevelNames.begin(), kLevelNames.end(), is));
        return known ? length : 0;
    }
    return 0;
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
    const std::size_t level = LevelLength(body.substr(1));
    const std::size_t name = 1 + level + kLevelEnd.size();
    const std::size_t nameEnd = level > 0 ? body.find(kTracerEnd, name) : std::string_view::npos;
    if (nameEnd == std::string_view::npos) {
        return;
    }
    line.level = body.substr(1, level);
    line.tracer = body.substr(name, nameEnd - name);
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
    if (TakeHeader(text, line)) {
        ReadBody(text, line);
    } else {
        line.message = text;
    }
    return line;
}

LogLine ParseLogHeader(std::string_view text) {
    LogLine line;
    if (TakeHeader(text, line)) {
        line.message = text;
        if (text.size() > 1 && text[1] == kCalibration[0] && text.starts_with(kCalibrationBegin)) {
            ReadBody(WithoutLineEnd(text), line);
        }
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

std::optional<FoundCalibration> FindCalibration(std::string_view text) {
    // Asked of each line, so the one sign that hardly any other has comes first.
    const auto endsWith = [&](auto sign, std::size_t within) {
        return text.substr(text.size() - std::min(text.size(), within)).find(sign) != std::string_view::npos;
    };
    if (!endsWith('=', kLongestType + 2)) {
        return std::nullopt;
    }
    text = WithoutLineEnd(text);
    if (!endsWith(Nima::Catalogue::kCalibrationType, kLongestType)) {
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
