#include "tools/log/LineReader.h"

#include <algorithm>
#include <cstring>

namespace NimaPost {

LineReader::LineReader(const InputFile& file, LogKind kind, std::uint64_t begin, std::uint64_t end)
    : file_(file), kind_(kind), next_(begin), end_(end) {}

bool LineReader::Next(std::string_view& line) {
    for (;;) {
        const std::string_view rest(buffer_.data() + from_, to_ - from_);
        const std::size_t length = LineLength(rest);
        if (length > 0) {
            line = rest.substr(0, length);
            lineOffset_ = next_ - rest.size();
            from_ += length;
            return true;
        }
        if (!Fill()) {
            const std::string_view last(buffer_.data() + from_, to_ - from_);
            line = last;
            lineOffset_ = next_ - last.size();
            from_ = to_;
            return !last.empty();
        }
    }
}

/// 0 when the end of the line is not in the buffer yet.
std::size_t LineReader::LineLength(std::string_view rest) const {
    std::size_t length = 0;
    if (kind_ == LogKind::kLines) {
        const void* end = rest.empty() ? nullptr : std::memchr(rest.data(), '\n', rest.size());
        length =
            end == nullptr ? 0 : static_cast<std::size_t>(static_cast<const char*>(end) - rest.data()) + 1;
    } else if (!rest.empty()) {
        const std::string_view window = rest.substr(0, kLongestLine + 64);
        length = FindQueueRecord(window, 1);
        length = length == window.size() ? 0 : length;
    }
    if (length == 0 || length > kLongestLine) {
        length = rest.size() >= kLongestLine ? kLongestLine : 0;
    }
    return length;
}

bool LineReader::Fill() {
    if (next_ >= end_) {
        return false;
    }
    if (buffer_.empty()) {
        buffer_.resize(
            static_cast<std::size_t>(std::min<std::uint64_t>(kBlock + kLongestLine, end_ - next_)));
    }
    std::memmove(buffer_.data(), buffer_.data() + from_, to_ - from_);
    to_ -= from_;
    from_ = 0;
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(buffer_.size() - to_, end_ - next_));
    const std::size_t got = file_.ReadAt(next_, {buffer_.data() + to_, wanted});
    to_ += got;
    next_ += got;
    if (got < wanted) {
        end_ = next_; // The file has become shorter under way.
    }
    return got > 0;
}

} // namespace NimaPost
