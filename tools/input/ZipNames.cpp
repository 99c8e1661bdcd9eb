#include "tools/input/ZipNames.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <string_view>
#include <utility>

namespace NimaPost {

namespace {

constexpr std::string_view kEntryMark = "PK\x01\x02";
constexpr std::string_view kEndMark = "PK\x05\x06";
constexpr std::size_t kEntryBytes = 46;
constexpr std::size_t kEndBytes = 22;
/// The end may be followed by a comment.
constexpr std::uint64_t kMostEndBytes = kEndBytes + 0xFFFF;
/// A hundred thousand names of usual length.
constexpr std::uint64_t kMostDirectoryBytes = 16 << 20;

std::string ReadPart(const InputFile& file, std::uint64_t offset, std::uint64_t size) {
    std::string bytes(static_cast<std::size_t>(size), '\0');
    bytes.resize(file.ReadAt(offset, bytes));
    return bytes;
}

std::uint64_t NumberAt(std::string_view bytes, std::size_t at, std::size_t width) {
    std::uint64_t number = 0;
    for (std::size_t i = width; i-- > 0;) {
        number = number << 8U | static_cast<unsigned char>(bytes[at + i]);
    }
    return number;
}

/// The directory, which stands in front of the end; empty where there is none, or one that is too large.
std::string Directory(const InputFile& file) {
    const std::uint64_t tail = std::min(file.Size(), kMostEndBytes);
    const std::string end = ReadPart(file, file.Size() - tail, tail);
    const std::size_t at = end.rfind(kEndMark);
    if (at == std::string::npos || end.size() - at < kEndBytes) {
        return {};
    }
    const std::uint64_t size = NumberAt(end, at + 12, 4);
    const std::uint64_t offset = NumberAt(end, at + 16, 4);
    const bool fits = size <= kMostDirectoryBytes && offset <= file.Size() && size <= file.Size() - offset;
    return fits ? ReadPart(file, offset, size) : std::string();
}

/// DOS and two of its heirs, where a backslash divides folders.
bool DividesByBackslash(std::uint64_t system) {
    return system == 0 || system == 10 || system == 14;
}

} // namespace

std::map<std::string, std::string> BackslashNames(const InputFile& file) {
    std::map<std::string, std::string> names;
    std::set<std::string> others;
    const std::string directory = Directory(file);
    std::string_view rest = directory;
    while (rest.size() >= kEntryBytes && rest.starts_with(kEntryMark)) {
        const std::uint64_t length = NumberAt(rest, 28, 2);
        const std::uint64_t whole = kEntryBytes + length + NumberAt(rest, 30, 2) + NumberAt(rest, 32, 2);
        std::string name(rest.substr(kEntryBytes, length));
        if (name.find('\\') == std::string::npos || name.find('/') != std::string::npos ||
            DividesByBackslash(NumberAt(rest, 5, 1))) {
            others.insert(std::move(name));
        } else {
            std::string divided = name;
            std::replace(divided.begin(), divided.end(), '\\', '/');
            names.emplace(std::move(divided), std::move(name));
        }
        rest.remove_prefix(static_cast<std::size_t>(std::min<std::uint64_t>(whole, rest.size())));
    }
    // A member that has the divided name itself cannot be told from that one.
    std::erase_if(names, [&](const auto& each) { return others.contains(each.first); });
    return names;
}

} // namespace NimaPost
