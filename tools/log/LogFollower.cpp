#include "tools/log/LogFollower.h"

#include <algorithm>
#include <utility>

namespace NimaPost {

LogFollower::LogFollower(std::string path) : path_(std::move(path)) {
    if (Reopen()) {
        position_ = file_->Size();
        // The rest of a line that is only half there is handed over with its other half.
        const std::string last = Read(position_ - std::min<std::uint64_t>(position_, kWindow), kWindow);
        const std::size_t end = last.rfind('\n');
        position_ -= end == std::string::npos ? last.size() : last.size() - end - 1;
    }
}

bool LogFollower::Poll(const Visitor& visitor) {
    if (!file_ && !Reopen()) {
        return false;
    }
    const bool same = file_->Refresh();
    bool any = false;
    if (BeginsAnew()) {
        // Before a log goes on at its start the rest of the round is written where it belongs.
        const auto known = static_cast<std::size_t>(std::min<std::uint64_t>(position_, front_.size()));
        any = rewritten_ ? ReadRewritten(visitor) : ReadAppended(visitor);
        // What stood there before: up to the position as it was kept, after it as it has just been read.
        ahead_ = front_.substr(0, known);
        ahead_ += Read(known, kWindow - known);
        position_ = 0;
        rewritten_ = true;
    }
    any = (rewritten_ ? ReadRewritten(visitor) : ReadAppended(visitor)) || any;
    front_ = Read(0, kWindow);
    if (!same && Reopen()) {
        any = Poll(visitor) || any;
    }
    return any;
}

bool LogFollower::Reopen() {
    std::string problem;
    auto file = InputFile::Open(path_, problem);
    if (!file) {
        return false;
    }
    file_ = std::move(file);
    position_ = 0;
    rewritten_ = false;
    front_ = Read(0, kWindow);
    ahead_.clear();
    return true;
}

/// A log's first line is its calibration line: another one there means another beginning.
bool LogFollower::BeginsAnew() const {
    const std::size_t line = std::min<std::size_t>(front_.find('\n'), 256);
    const std::string now = Read(0, std::min(line, front_.size()));
    return !now.empty() && (file_->Size() < position_ || !std::string_view(front_).starts_with(now));
}

bool LogFollower::ReadAppended(const Visitor& visitor) {
    const std::uint64_t before = position_;
    for (;;) {
        const std::string bytes = Read(position_, kWindow);
        const std::uint64_t from = position_;
        TakeLines(bytes, visitor);
        if (bytes.size() < kWindow || position_ == from) {
            return position_ != before;
        }
    }
}

/// Lines come in whole and one after the other, so all up to the last byte that has changed is new.
bool LogFollower::ReadRewritten(const Visitor& visitor) {
    const std::uint64_t before = position_;
    for (;;) {
        const std::string now = Read(position_, kWindow);
        std::size_t changed = now.size();
        if (now.size() <= ahead_.size()) {
            while (changed > 0 && now[changed - 1] == ahead_[changed - 1]) {
                --changed;
            }
        }
        if (changed == 0) {
            ahead_ = now;
            return position_ != before;
        }
        const std::size_t end = now.find('\n', changed - 1);
        const std::size_t taken = end == std::string::npos ? changed : end + 1;
        TakeLines(std::string_view(now).substr(0, taken), visitor);
        if (taken == now.size()) {
            rewritten_ = false; // The old end has been passed: from here on the file grows again.
            return ReadAppended(visitor) || position_ != before;
        }
        ahead_ = taken < ahead_.size() ? ahead_.substr(taken) : std::string();
        ahead_ += Read(position_ + ahead_.size(), kWindow - ahead_.size());
        if (changed < kWindow) {
            return true;
        }
    }
}

void LogFollower::TakeLines(std::string_view bytes, const Visitor& visitor) {
    for (std::size_t end = bytes.find('\n'); end != std::string_view::npos; end = bytes.find('\n')) {
        const std::string_view line = bytes.substr(0, end + 1);
        bytes.remove_prefix(end + 1);
        visitor({line, position_, bytes});
        position_ += end + 1;
    }
    if (bytes.size() >= kWindow) { // No line is that long; what is there is not to hold up the rest.
        visitor({bytes, position_, {}});
        position_ += bytes.size();
    }
}

std::string LogFollower::Read(std::uint64_t offset, std::size_t bytes) const {
    std::string text(bytes, '\0');
    text.resize(file_->ReadAt(offset, text));
    return text;
}

} // namespace NimaPost
