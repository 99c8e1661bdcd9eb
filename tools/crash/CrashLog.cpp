#include "tools/crash/CrashLog.h"

#include "catalogue/Failures.h"
#include "catalogue/Marks.h"
#include "tools/base/Text.h"
#include "tools/rings/RingText.h"
#include "tools/rings/Seam.h"

#include <algorithm>

namespace NimaPost {

using namespace Nima::Catalogue;

namespace {

constexpr std::size_t kMostLines = 10000;

std::string_view WithoutBlanks(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    return text;
}

/// "Label: value"; blanks before the label are dropped.
bool SplitField(std::string_view line, std::string_view separator, std::string_view& label,
                std::string_view& value) {
    const std::size_t at = line.find(separator);
    if (at == std::string_view::npos) {
        return false;
    }
    label = WithoutBlanks(line.substr(0, at));
    value = WithoutBlanks(line.substr(at + separator.size()));
    return true;
}

void ReadExtraData(std::string_view value, std::vector<std::string>& words) {
    while (!value.empty()) {
        const std::size_t end = std::min(value.find(' '), value.size());
        const std::string_view item = value.substr(0, end);
        const std::size_t equals = item.find('=');
        if (equals != std::string_view::npos) {
            words.push_back(Printable(item.substr(equals + 1)));
        }
        value.remove_prefix(std::min(end + 1, value.size()));
    }
}

/// Whether a line is one of those with which every dump begins.
bool IsOfHead(std::string_view line) {
    return line.starts_with(kHeadTicks) || line.starts_with(kHeadFrequency) ||
           line.find(kHeadDate) != std::string_view::npos;
}

/// The sections of a crash log in their order; a log that was cut ends in one of them.
class Reader {
  public:
    Reader(CrashLog& log, Findings& findings) : log_(log), findings_(findings) {}

    void Run(std::string_view text) {
        for (std::size_t count = 0; !text.empty(); ++count) {
            const std::string_view line = TakeLine(text);
            if (line == kRingDumpBegin) {
                TakeRings(text);
            } else if (!Section(line)) {
                Content(line);
            }
            if (log_.complete && section_ == kFooter && count > kMostLines) {
                break;
            }
        }
    }

  private:
    enum Part { kFailure, kModules, kStacks, kRings, kFooter };

    bool Section(std::string_view line) {
        if (line == kModulesSection) {
            section_ = kModules;
        } else if (line == kCallStacksSection) {
            section_ = kStacks;
        } else if (line == kRingsSection) {
            section_ = kRings;
        } else if (line == kCrashLogEnd && !log_.complete) {
            section_ = kFooter;
            log_.complete = true;
        } else {
            return false;
        }
        return true;
    }

    void TakeRings(std::string_view& text) {
        log_.rings.isText = true;
        ReadRingLines(text, log_.rings, findings_);
        while (!text.empty() && TakeLine(text) != kRingDumpEnd) {
        }
    }

    void Content(std::string_view line) {
        std::string_view label;
        std::string_view value;
        if (section_ == kFailure && SplitField(line, ": ", label, value)) {
            if (label == kExtraData) {
                ReadExtraData(value, log_.extraData);
            } else if (!IsOfHead(line) && log_.failure.size() < kMostLines) {
                log_.failure.emplace_back(Printable(label), Printable(value));
            }
        } else if (section_ == kModules && line.starts_with(kFaultInCrashLog)) {
            findings_.Remark("fault-in-triage", Printable(line));
        } else if (section_ == kModules && !line.empty() && log_.modules.size() < kMostLines) {
            log_.modules.push_back(Printable(line));
        } else if (section_ == kStacks) {
            ExceptionLine(line);
        } else if (section_ == kFooter && log_.footer.size() < kMostLines) {
            log_.footer += Printable(line);
            log_.footer += line.empty() ? "" : "\n";
        }
    }

    void ExceptionLine(std::string_view line) {
        std::string_view label;
        std::string_view value;
        if (line == kExceptionRecord || line == kExceptionRecordBegin || line == kExceptionRecordEnd) {
            return;
        }
        if ((SplitField(line, ": ", label, value) || SplitField(line, "=", label, value)) &&
            log_.exception.size() < kMostLines) {
            log_.exception.emplace_back(Printable(label), Printable(value));
        } else if (line.starts_with(kFaultInCrashLog)) {
            findings_.Remark("fault-in-triage", Printable(line));
        }
    }

    CrashLog& log_;
    Findings& findings_;
    Part section_ = kFailure;
};

} // namespace

std::string_view CrashLog::Field(std::string_view label) const {
    const auto found =
        std::find_if(failure.begin(), failure.end(), [&](const auto& field) { return field.first == label; });
    return found != failure.end() ? std::string_view(found->second) : std::string_view();
}

std::optional<std::uint64_t> CrashLog::BootCycle() const {
    std::uint64_t cycle = 0;
    return ParseNumber(Field(kBootCycle), cycle) && cycle != 0 ? std::optional(cycle) : std::nullopt;
}

bool CrashLog::HasCode(std::uint32_t code) const {
    const auto is = [&](std::string_view label) {
        std::string_view digits = Field(label);
        std::uint64_t value = 0;
        return TakeHex(digits, value) && digits.empty() && value == code;
    };
    return is(kErrorCode) || (code != 0 && is(kExceptionCode));
}

std::string CrashLog::Title() const {
    const std::string_view type = Field(kCrashType);
    const std::string_view code = Field(kErrorCode);
    const auto is = [](std::string_view field, std::int32_t value) {
        std::uint64_t number = 0;
        return TakeHex(field, number) && field.empty() && number == static_cast<std::uint64_t>(value);
    };
    if (is(type, kReportedError)) {
        return "Fatal error reported by a component";
    }
    if (is(type, kNativeException)) {
        return is(code, kAccessViolation) ? "Native exception: access violation"
               : is(code, kStackOverflow) ? "Native exception: stack overflow"
                                          : "Native exception";
    }
    if (is(type, kProcessExit)) {
        return is(code, kProcessExited) ? "The process exited while exits were trapped"
                                        : "Failure of unknown kind";
    }
    return type.empty() ? "Failure" : "Failure reported by the host, type " + std::string(type);
}

bool LooksLikeCrashLog(std::string_view front) {
    return (TakeLiteral(front, kCrashLogTitle) && TakeLiteral(front, kHeadDate)) ||
           (TakeLiteral(front, kErrorCode) && TakeLiteral(front, ": "));
}

std::optional<CrashLog> ReadCrashLog(std::string_view text, Findings& findings) {
    if (!LooksLikeCrashLog(text)) {
        findings.Damage("not-a-crash-log", std::string("No crash log: it does not begin with \"") +
                                               kCrashLogTitle + kHeadDate + "\".");
        return std::nullopt;
    }
    CrashLog log;
    ReadDumpHead(text, log.date, log.ticks);
    log.rings.ticks = log.ticks;
    if (!log.date || !log.ticks) {
        findings.Damage("head-unreadable", "The head of the crash log cannot be read.");
    }
    Reader(log, findings).Run(text);
    RemarkOnOrder(log.rings, findings);
    if (!log.complete) {
        findings.Damage("crash-log-cut",
                        "The crash log was cut short: \"" + std::string(kCrashLogEnd) + "\" is missing.");
    }
    return log;
}

} // namespace NimaPost
