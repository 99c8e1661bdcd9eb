#include "tools/log/LogStretches.h"

#include "tools/base/Progress.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace NimaPost {

namespace {

/// Searched at once; small enough for the processor's own memory.
constexpr std::size_t kSearchedAtOnce = 1 << 18;

} // namespace

bool LogStretches::Next(LogStretch& stretch) {
    while (next_.part < parts_.size()) {
        const bool wanted = sieve_ == nullptr || PassesSieve();
        if (wanted) {
            stretch = StretchAt(next_);
            next_ = After(next_);
            return true;
        }
    }
    return false;
}

/// Whether the messages that begin at `next_` are to be read. Where they are not, goes on to those after
/// them.
bool LogStretches::PassesSieve() {
    const auto isBefore = [](const Place& a, const Place& b) {
        return a.part < b.part || (a.part == b.part && a.mark < b.mark);
    };
    if (isBefore(next_, decided_)) {
        return true;
    }
    // What stands in front of the first header may belong to a message that is not there, of any level.
    LineSieve::Needs found = BeginsInside(next_) ? sieve_->All() : 0;
    Place end = next_;
    do {
        if (found != sieve_->All()) {
            found |= NeedsIn(StretchAt(end));
        }
        end = After(end);
    } while (end.part < parts_.size() && BeginsInside(end) && parts_[end.part].followsBackup);
    const bool wanted = found == sieve_->All();
    decided_ = end;
    next_ = wanted ? next_ : end;
    return wanted;
}

LogStretches::Place LogStretches::After(const Place& place) const {
    return sieve_ != nullptr && place.mark < parts_[place.part].marks.size()
               ? Place{place.part, place.mark + 1}
               : Place{place.part + 1, 0};
}

LogStretch LogStretches::StretchAt(const Place& place) const {
    const LogPart& part = parts_[place.part];
    LogStretch stretch{&part, part.begin, part.end, {}};
    if (place.mark > 0) {
        stretch.begin = part.marks[place.mark - 1].offset;
        stretch.clock = part.marks[place.mark - 1].clock;
    }
    const Place after = After(place);
    if (after.part == place.part) {
        stretch.end = part.marks[after.mark - 1].offset;
    }
    return stretch;
}

bool LogStretches::BeginsInside(const Place& place) const {
    return place.mark == 0 && parts_[place.part].beginsInside;
}

LineSieve::Needs LogStretches::NeedsIn(const LogStretch& stretch) {
    const LogFile& file = *files_[stretch.part->file];
    if (file.kind == LogKind::kQueue) {
        return sieve_->All();
    }
    buffer_.resize(kSearchedAtOnce);
    LineSieve::Needs found = 0;
    std::size_t kept = 0;
    for (std::uint64_t at = stretch.begin; at < stretch.end && found != sieve_->All();) {
        Progress::Note(file.file.Path(), at, file.file.Size());
        const auto wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(kSearchedAtOnce - kept, stretch.end - at));
        const std::size_t got = file.file.ReadAt(at, {buffer_.data() + kept, wanted});
        const std::string_view bytes(buffer_.data(), kept + got);
        at = got < wanted ? stretch.end : at + got;
        const std::size_t lines = at == stretch.end ? bytes.size() : bytes.rfind('\n') + 1;
        if (lines == 0) {
            return sieve_->All(); // A line that is as long as all of it.
        }
        found |= sieve_->In(bytes.substr(0, lines));
        kept = bytes.size() - lines;
        std::memmove(buffer_.data(), buffer_.data() + lines, kept);
    }
    return found;
}

} // namespace NimaPost
