#include "tools/commands/LinePrinter.h"

#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"

#include <optional>
#include <string>

namespace NimaPost {

void LinePrinter::Print(const LogEntry& entry) {
    std::string& text = context_.out.Text();
    const Paint& paint = context_.paint;
    text += paint.Dim();
    times_.Append(text, entry.hasTime ? std::optional(entry.time) : std::nullopt, entry.hasWall);
    text += ' ';
    text += entry.hasTime ? MarkOf(entry.certainty).sign : ' ';
    text += entry.part->overwritten ? kOverwrittenMark.sign : ' ';
    text += paint.Plain();
    colour_ = entry.continued ? colour_ : paint.OfLevel(entry.line.level);
    text += colour_;
    AppendPrintable(text, entry.text);
    text += colour_.empty() ? "" : paint.Plain();
    text += '\n';
    context_.out.Pace();
}

} // namespace NimaPost
