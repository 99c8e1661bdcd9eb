#include "tools/crash/Notification.h"

#include "catalogue/Files.h"
#include "catalogue/Notification.h"
#include "tools/base/Text.h"

namespace NimaPost {

namespace {

constexpr std::string_view kHead = Nima::Catalogue::kNotificationHead;
constexpr std::string_view kFolder = Nima::Catalogue::kNotificationFolder;
constexpr std::string_view kEnd = Nima::Catalogue::kNotificationEnd;

bool TakeNumber(std::string_view& text, std::int64_t& number) {
    return !text.empty() && text.front() >= '0' && text.front() <= '9' && TakeDecimal(text, number);
}

} // namespace

std::optional<CrashNotification> ParseNotification(std::string_view datagram) {
    if (!TakeLiteral(datagram, kHead) || !datagram.ends_with(kEnd) ||
        datagram.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    datagram.remove_suffix(kEnd.size());
    // A working directory may have line ends in its name; the kernel's pattern has none.
    const std::size_t folder = datagram.rfind(kFolder);
    if (folder == std::string_view::npos || folder == 0) {
        return std::nullopt;
    }
    return CrashNotification{std::string(datagram.substr(0, folder)),
                             std::string(datagram.substr(folder + kFolder.size()))};
}

std::optional<StackTraceName> ParseStackTraceName(std::string_view name) {
    std::int64_t process = 0;
    std::int64_t number = 0;
    if (!TakeLiteral(name, Nima::Catalogue::kStackTracePrefix) || !TakeNumber(name, process) ||
        process > 0x7FFFFFFF || !TakeLiteral(name, "-") || !TakeNumber(name, number) ||
        name != Nima::Catalogue::kStackTraceSuffix) {
        return std::nullopt;
    }
    return StackTraceName{static_cast<std::uint32_t>(process), number};
}

std::string_view LastComponent(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

} // namespace NimaPost
