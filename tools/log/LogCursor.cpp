#include "tools/log/LogCursor.h"

#include "tools/base/Text.h"

#include <algorithm>

namespace NimaPost {

std::int64_t QueueClock::Next(const RawDate& date) {
    std::int64_t time = date.Earliest();
    const std::int64_t step = kCutMicroseconds * 1000;
    const std::int64_t end = (date.second + 1) * kSecond;
    while (time < last_ && last_ < end && time + step < end) {
        time += step;
    }
    later_ = (end - 1 - time) / step * step;
    last_ = time;
    return time;
}

bool LogCursor::Next() {
    while (NextLine()) {
        if (TakeIfWanted()) {
            return true;
        }
    }
    return false;
}

bool LogCursor::NextLine() {
    for (;;) {
        const bool anyLine = reader_ && reader_->Next(text_);
        if (anyLine && reader_->Offset() < stretch_.end) {
            return true;
        }
        LogStretch last = std::move(stretch_);
        if (!stretches_.Next(stretch_)) {
            reader_.reset();
            return false;
        }
        if (anyLine && stretch_.part == last.part && stretch_.begin == last.end) {
            return true;
        }
        if (stretch_.part != last.part) {
            BeginPart(*stretch_.part);
        }
        const LogFile& file = *files_[stretch_.part->file];
        reader_.emplace(file.file, file.kind, stretch_.begin, stretch_.part->end, KnownQuotes(file.quotes));
        clock_ = stretch_.clock;
    }
}

/// Takes the line, unless it is of a message that the sieve does not admit. A line without header goes with
/// those before it.
bool LogCursor::TakeIfWanted() {
    if (sieve_ == nullptr) {
        Take();
        return true;
    }
    const bool levelTells = sieve_->KnowsLevels() && files_[stretch_.part->file]->kind == LogKind::kLines;
    const LogLine header = levelTells ? reader_->ParseHeader(text_) : LogLine();
    if (header.hasHeader && !IsCalibration(header) && !sieve_->MayAdmit(header.message)) {
        TakeTime(header);
        admitted_ = false;
    } else {
        Take();
        admitted_ = entry_.continued ? admitted_ : !entry_.line.hasHeader || sieve_->Admits(entry_.line);
    }
    return admitted_;
}

void LogCursor::BeginPart(const LogPart& part) {
    const LogFile& file = *files_[part.file];
    const LogRun& run = runs_[part.run];
    entry_ = LogEntry();
    entry_.part = &part;
    entry_.hasWall = file.kind == LogKind::kQueue || run.wall.has_value();
    certainty_ = part.certainty;
    certainty_.originLater = run.wall ? run.wall->Spread() : 0;
    if (!run.wall) { // No clock's setting changes elapsed time.
        certainty_.premise = Certainty::Premise::kNothing;
    }
    origin_ = part.start + OriginOf(run);
    entry_.certainty = Certainty::Assumed();
    entry_.time = origin_;
    queueClock_ = QueueClock();
}

void LogCursor::Take() {
    entry_.line = reader_->Parse(text_);
    if (reader_->Offset() == entry_.part->begin && !entry_.part->calibrationHasStamp) {
        // Times count from the stamp after it.
        entry_.line.stamped = false;
        entry_.certainty = certainty_;
        entry_.hasTime = true;
    }
    entry_.text = WithoutLineEnd(text_);
    entry_.offset = reader_->Offset();
    entry_.continued =
        !entry_.line.hasHeader && (entry_.offset != entry_.part->begin || entry_.part->followsBackup);
    TakeTime(entry_.line);
}

/// The clock goes through all lines, shown or not.
void LogCursor::TakeTime(const LogLine& line) {
    if (line.date) {
        entry_.time = queueClock_.Next(*line.date);
        entry_.certainty = certainty_;
        entry_.certainty.originLater = queueClock_.Later();
        entry_.hasTime = true;
    } else if (line.stamped) {
        const std::int64_t elapsed = clock_.Next(line.counter, OrderedThread(line));
        entry_.time = origin_ + elapsed;
        entry_.hasTime = true;
        entry_.certainty = certainty_;
        const std::int64_t later = entry_.part->certainty.later;
        entry_.certainty.later = later != Certainty::kUnbounded
                                     ? later + entry_.part->overcounted + (clock_.WasLate() ? 1 : 0)
                                     : later;
        if (const auto& notAfter = entry_.part->notAfter) {
            const std::int64_t before = *notAfter - entry_.part->start - elapsed;
            entry_.certainty.later = std::max<std::int64_t>(0, before) / kSecond + 1;
        }
        const auto& setAfter = entry_.part->setAfter;
        const bool isSet = setAfter && entry_.part->start + elapsed > *setAfter;
        entry_.certainty.earlier = isSet ? Certainty::kUnbounded : entry_.part->certainty.earlier;
        if (entry_.certainty.premise == Certainty::Premise::kNothing && entry_.certainty.earlier >= 0) {
            entry_.certainty.earlier += clock_.HeldUp();
        }
        entry_.certainty.later = isSet ? Certainty::kUnbounded : entry_.certainty.later;
    }
}

} // namespace NimaPost
