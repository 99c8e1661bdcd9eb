#include "tools/commands/SummaryFacts.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"

#include <algorithm>

namespace NimaPost {

namespace {

constexpr std::int64_t kMinute = 60 * kSecond;

/// As a shell takes it.
std::string Quoted(const std::string& argument) {
    std::string text = ToUtf8(argument);
    if (text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./+,:@%") ==
        std::string::npos) {
        return text;
    }
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return quoted + "'";
}

} // namespace

std::vector<SummaryFacts::Kind> SummaryFacts::Kinds() const {
    std::vector<Kind> kinds;
    for (const FolderFile& file : story.Files()) {
        const std::string kind(file.row != nullptr ? file.row->kind : "other");
        auto found =
            std::find_if(kinds.begin(), kinds.end(), [&](const auto& each) { return each.kind == kind; });
        if (found == kinds.end()) {
            found = kinds.insert(kinds.end(), Kind());
            found->kind = kind;
        }
        const auto events = statistics.files.find(file.index);
        ++found->files;
        found->bytes += file.bytes;
        found->events += events != statistics.files.end() ? events->second : 0;
    }
    return kinds;
}

std::vector<SummaryFacts::Name> SummaryFacts::Names() const {
    std::vector<Name> names(statistics.names.begin(), statistics.names.end());
    std::stable_sort(names.begin(), names.end(),
                     [](const Name& a, const Name& b) { return a.second.all > b.second.all; });
    return names;
}

double SummaryFacts::PerMinute(std::uint64_t count) const {
    const auto length = statistics.Length();
    return length ? static_cast<double>(count) * static_cast<double>(kMinute) / static_cast<double>(*length)
                  : 0;
}

std::vector<std::string> SummaryFacts::NextCommands() const {
    std::string folder = Quoted(input.source);
    if (!input.device.name.empty()) {
        folder += " --device " + Quoted(input.device.name);
    }
    std::vector<std::string> commands;
    if (!story.Crashes().empty() && story.Crashes().back().time) {
        commands.push_back("nima-post show " + folder + " --around crash --within 5s");
    }
    commands.push_back("nima-post log " + folder + " --level WARN+");
    commands.push_back("nima-post report " + folder + " -o report.html");
    return commands;
}

} // namespace NimaPost
