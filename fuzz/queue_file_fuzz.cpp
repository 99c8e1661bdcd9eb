#include "fuzz/support/MemoryFile.h"
#include "tools/log/LineReader.h"
#include "tools/log/LogSet.h"

#include <cstdlib>

using namespace NimaPost;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile file;
    file.Fill(TextOf(data, size));
    const InputFile input = FileOf(TextOf(data, size));
    LineReader reader(input, LogKind::kQueue, 0, input.Size());
    std::uint64_t bytes = 0;
    for (std::string_view record; reader.Next(record); bytes += record.size()) {
        if (reader.Offset() != bytes) {
            std::abort(); // Records follow each other without a gap.
        }
    }
    if (bytes != size) {
        std::abort();
    }
    LogSet logs;
    std::string problem;
    auto log = InputFile::Open(file.Path(), problem);
    logs.Take(*log);
    logs.Arrange();
    logs.ForEach([](const LogEntry& /*entry*/) { return true; });
    return 0;
}
