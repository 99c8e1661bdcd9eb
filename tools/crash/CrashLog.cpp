#include "tools/crash/CrashLog.h"

#include "tools/base/Text.h"

#include <algorithm>

namespace NimaPost {

namespace {

constexpr std::size_t kMostLines = 10000;

/// Walks the lines of a text.
class Lines {
  public:
    explicit Lines(std::string_view text) : rest_(text) {}

    bool Next() {
        if (rest_.empty()) {
            return false;
        }
        const std::size_t end = std::min(rest_.find('\n'), rest_.size() - 1) + 1;
        line_ = WithoutLineEnd(rest_.substr(0, end));
        rest_.remove_prefix(end);
        return true;
    }
    std::string_view Line() const { return line_; }
    std::string_view Rest() const { return rest_; }

  private:
    std::string_view rest_;
    std::string_view line_;
};

std::string Printable(std::string_view text) {
    std::string out;
    AppendPrintable(out, text);
    return out;
}

std::string_view WithoutBlanks(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    return text;
}

/// "Label: value" with the label's blanks in front taken away.
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

/// The sections of a crash log in their order; a log that was cut ends in one of them.
class Reader {
  public:
    Reader(CrashLog& log, Findings& findings) : log_(log), findings_(findings) {}

    void Run(std::string_view text) {
        Lines lines(text);
        for (std::size_t count = 0; lines.Next(); ++count) {
            const std::string_view line = lines.Line();
            if (line == "BEGIN RING BUFFER DUMP") {
                SkipRings(lines);
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
        if (line == "Loaded Modules") {
            section_ = kModules;
        } else if (line == "Call Stacks") {
            section_ = kStacks;
        } else if (line == "Ring Buffers (unformatted)") {
            section_ = kRings;
        } else if (line == "All Done!!" && !log_.complete) {
            section_ = kFooter;
            log_.complete = true;
        } else {
            return false;
        }
        return true;
    }

    void SkipRings(Lines& lines) {
        log_.rings.isText = true;
        ReadRingLines(lines.Rest(), log_.rings, findings_);
        while (lines.Next() && lines.Line() != "END RING BUFFER DUMP") {
        }
    }

    void Content(std::string_view line) {
        std::string_view label;
        std::string_view value;
        if (section_ == kFailure && SplitField(line, ": ", label, value)) {
            if (label == "Extra Data") {
                ReadExtraData(value, log_.extraData);
            } else if (label != "Ticks" && label != "Frequency" && !label.ends_with("Date/Time") &&
                       log_.failure.size() < kMostLines) {
                log_.failure.emplace_back(Printable(label), Printable(value));
            }
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
        if (line == "Exception Record:" || line.find("EXCEPTION RECORD") != std::string_view::npos) {
            return;
        }
        if ((SplitField(line, ": ", label, value) || SplitField(line, "=", label, value)) &&
            log_.exception.size() < kMostLines) {
            log_.exception.emplace_back(Printable(label), Printable(value));
        } else if (line.starts_with("Fault")) {
            findings_.Remark(Printable(line));
        }
    }

    CrashLog& log_;
    Findings& findings_;
    Part section_ = kFailure;
};

bool IsFrame(std::string_view line) {
    std::uint64_t address = 0;
    return TakeLiteral(line, "0x") && TakeHex(line, address) && !line.empty();
}

} // namespace

std::string_view CrashLog::Field(std::string_view label) const {
    const auto found =
        std::find_if(failure.begin(), failure.end(), [&](const auto& field) { return field.first == label; });
    return found != failure.end() ? std::string_view(found->second) : std::string_view();
}

std::string CrashLog::Title() const {
    const std::string_view type = Field("Crash Type");
    const std::string_view code = Field("Error Code");
    if (type == "2") {
        return "Fatal error reported by a component";
    }
    if (type == "1") {
        return code == "493813"   ? "Native exception: access violation"
               : code == "493814" ? "Native exception: stack overflow"
                                  : "Native exception";
    }
    if (type == "0") {
        return code == "49380A" ? "The process exited while exits were trapped" : "Failure of unknown kind";
    }
    return type.empty() ? "Failure" : "Failure of type " + std::string(type);
}

bool LooksLikeCrashLog(std::string_view front) {
    return front.starts_with("Crash Date/Time: ") || front.starts_with("Error Code: ");
}

std::optional<CrashLog> ReadCrashLog(std::string_view text, Findings& findings) {
    if (!LooksLikeCrashLog(text)) {
        findings.Damage("No crash log: it does not begin with \"Crash Date/Time: \".");
        return std::nullopt;
    }
    CrashLog log;
    ReadDumpHead(text, log.date, log.ticks);
    log.rings.ticks = log.ticks;
    if (!log.date || !log.ticks) {
        findings.Damage("The head of the crash log cannot be read.");
    }
    Reader(log, findings).Run(text);
    if (!log.complete) {
        findings.Damage("The crash log was cut short: \"All Done!!\" is missing.");
    }
    return log;
}

bool LooksLikeStackTrace(std::string_view front) {
    const std::string_view line = WithoutLineEnd(front.substr(0, front.find('\n')));
    return (IsFrame(line) &&
            (line.find(": (") != std::string_view::npos ||
             line.find(" -- error: unable to obtain symbol name") != std::string_view::npos)) ||
           line.find(": Message: [") != std::string_view::npos;
}

StackTrace ReadStackTrace(std::string_view text, Findings& findings) {
    StackTrace trace;
    if (!text.empty() && !text.ends_with('\n')) {
        findings.Damage("The last line was cut short.");
    }
    Lines lines(text);
    while (lines.Next() && trace.frames.size() + trace.report.size() < kMostLines) {
        if (IsFrame(lines.Line())) {
            trace.frames.push_back(Printable(lines.Line()));
        } else if (!lines.Line().empty()) {
            trace.report.push_back(Printable(lines.Line()));
        }
    }
    return trace;
}

} // namespace NimaPost
