#include "fuzz/support/MemoryFile.h"
#include "tools/log/LogFilter.h"
#include "tools/log/LogSet.h"

using namespace NimaPost;

static void Take(LogSet& logs, const MemoryFile& memory) {
    std::string problem;
    auto file = InputFile::Open(memory.Path(), problem);
    logs.Take(*file);
}

/// Up to three files of one device, separated by a line of equals signs.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile files[3];
    constexpr std::string_view kBetween = "\n====\n";
    std::string_view rest = TextOf(data, size);
    LogSet logs;
    for (const MemoryFile& file : files) {
        const std::size_t end = rest.find(kBetween);
        file.Fill(rest.substr(0, end));
        Take(logs, file);
        if (end == std::string_view::npos) {
            break;
        }
        rest.remove_prefix(end + kBetween.size());
    }
    logs.Arrange();
    LogFilter filter;
    TextFilter texts;
    texts.Want(Pattern::Literal("page", true));
    filter.SetTexts(texts);
    std::string text;
    logs.ForEach([&](const LogEntry& entry) {
        filter.Judge(entry);
        AppendWallTime(text, entry.time);
        text.clear();
        return true;
    });
    logs.ClockStatement();
    logs.LastAnchor();
    return 0;
}
