#include "fuzz/support/MemoryFile.h"
#include "tools/base/Text.h"
#include "tools/log/LogLine.h"

#include <algorithm>
#include <cstdlib>

using namespace NimaPost;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = TextOf(data, size);
    LogLine line = ParseLogLine(text);
    CalibrationDate(line);
    line = ParseQueueRecord(text);
    if (line.date) {
        std::string wall;
        AppendWallTime(wall, line.date->Earliest());
    }
    RestOfHeader(text);
    FindCalibration(text);
    ParseLogHeader(text);
    LogKindOf(text);
    std::string printable;
    AppendPrintable(printable, text);
    const bool moves = std::any_of(printable.begin(), printable.end(),
                                   [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
    const std::string valid = ToUtf8(text);
    if (moves || ToUtf8(printable) != printable || ToUtf8(valid) != valid) {
        std::abort();
    }
    return 0;
}
