#include "tools/crash/HostReport.h"

#include "catalogue/Marks.h"
#include "tools/base/Text.h"

namespace NimaPost {

using namespace Nima::Catalogue;

namespace {

/// A line of a report is never longer.
constexpr std::size_t kLongestLine = 99;
constexpr std::string_view kLineMark = ", line ";

/// "fuser.cpp, line 54"
bool SplitPlace(std::string_view place, std::string& file, std::int64_t& line) {
    const std::size_t at = place.rfind(kLineMark);
    if (at == std::string_view::npos) {
        return false;
    }
    std::string_view number = place.substr(at + kLineMark.size());
    file = Printable(place.substr(0, at));
    return TakeDecimal(number, line) && number.empty();
}

/// "3255301, 0x0031ac05"
std::optional<std::uint32_t> CodeOf(std::string_view text) {
    std::int64_t decimal = 0;
    std::uint64_t code = 0;
    std::string_view digits;
    if (!TakeDecimal(text, decimal) || !TakeLiteral(text, ", 0x")) {
        return std::nullopt;
    }
    digits = text.substr(0, 8);
    return digits.size() == 8 && TakeHex(digits, code) && digits.empty()
               ? std::optional(static_cast<std::uint32_t>(code))
               : std::nullopt;
}

} // namespace

std::string HostReport::Headline() const {
    return (message.empty() ? "A report without a message" : message) + (cut ? "..." : "") + " (" + file +
           ", line " + std::to_string(line) + ")";
}

bool LooksLikeHostReport(std::string_view front) {
    if (ReadHostReport(front)) {
        return true;
    }
    // The name of the host's file may fill the first lines, but the fourth is always whole.
    const std::string unit = std::string(kReportUnit) + std::string(kLineMark);
    const std::size_t end = front.substr(0, 4 * kLongestLine).find(kReportCallStack);
    const std::size_t begin = front.substr(0, end).rfind(unit);
    return end != std::string_view::npos && begin != std::string_view::npos &&
           end - begin < unit.size() + std::string_view("00000").size();
}

std::optional<HostReport> ReadHostReport(std::string_view text) {
    HostReport report;
    const std::size_t mark = text.substr(0, kLongestLine).find(kReportMessage);
    if (mark == std::string_view::npos || !SplitPlace(text.substr(0, mark), report.file, report.line)) {
        return std::nullopt;
    }
    // The message may hold line ends of its own, so only the next line's beginning tells where it ends.
    const std::string next = std::string(text.substr(0, mark)) + kReportCode;
    const std::size_t end = text.substr(0, kLongestLine + next.size()).find(next, mark);
    const std::size_t begin = mark + std::string_view(kReportMessage).size();
    std::string_view message = text.substr(0, end != std::string_view::npos ? end : kLongestLine);
    if (end == std::string_view::npos) {
        message = message.substr(0, message.find('\n', begin));
    } else {
        report.code = CodeOf(text.substr(end + next.size()));
    }
    message = WithoutLineEnd(message.substr(begin));
    report.cut = !message.ends_with(']');
    message.remove_suffix(report.cut ? 0 : 1);
    report.message = Printable(message);
    return report;
}

} // namespace NimaPost
