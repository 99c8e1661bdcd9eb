#include "tools/commands/CrashCause.h"

#include "catalogue/Marks.h"
#include "tools/base/Text.h"
#include "tools/crash/TopFrame.h"

#include <string_view>

namespace NimaPost {

CrashCause::CrashCause(const Crash& crash) : message(crash.title) {
    using namespace Nima::Catalogue;
    if (crash.log != nullptr) {
        const CrashLog& log = crash.log->log;
        const auto field = [&](const char* label, const char* prefix) {
            const std::string_view value = log.Field(label);
            return value.empty() ? std::string() : prefix + std::string(value);
        };
        file = field(kFileName, "");
        line = field(kLineNumber, "");
        code = field(kErrorCode, "0x");
        exception = field(kExceptionCode, "0x");
    }
    if (crash.stacks.empty()) {
        return;
    }
    const StackTrace& stack = crash.stacks.front()->content;
    frame = TopFrame(stack);
    if (stack.host) {
        message = stack.host->message + (stack.host->cut ? "..." : "");
        file = stack.host->file;
        line = std::to_string(stack.host->line);
        code = stack.host->code ? Hex32(*stack.host->code) : code;
    }
}

std::string CrashCause::InWords() const {
    std::string words = message;
    const auto add = [&](const char* label, const std::string& value) {
        words += value.empty() || value == "0x0" ? "" : std::string(", ") + label + value;
    };
    add("", file.empty() || line.empty() ? file : file + ":" + line);
    add("code ", code);
    add("exception ", exception);
    add("in ", frame);
    return words;
}

} // namespace NimaPost
