#pragma once

#include "tools/base/InputFile.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace NimaPost {

/// A line as it has come. The views hold until the visitor returns.
struct FollowedLine {
    std::string_view text; ///< with its end
    std::uint64_t offset = 0;
    std::string_view following; ///< what has come after it so far
};

/// Watches a log that is being written and hands over the lines that come: at its end, in a new file after a
/// roll, or again from the start, over the old ones.
class LogFollower {
  public:
    /// Begins after what is there now, or at the start when the file is not there yet.
    explicit LogFollower(std::string path);

    using Visitor = std::function<void(const FollowedLine& line)>;
    /// Hands over the lines that have come since the last call. True if there were any.
    bool Poll(const Visitor& visitor);

    /// Where the next line begins.
    std::uint64_t Position() const { return position_; }

    /// Why the system refused to read the log as it is now, "Input/output error" for example; empty if it
    /// never did.
    std::string ReadError() const { return file_ ? file_->ReadError() : std::string(); }

  private:
    /// Beyond this many new bytes at a time the comparison with the old ones takes several rounds.
    static constexpr std::size_t kWindow = 1 << 20;

    bool Reopen();
    bool ReadAppended(const Visitor& visitor);
    bool ReadRewritten(const Visitor& visitor);
    bool BeginsAnew() const;
    void TakeLines(std::string_view bytes, const Visitor& visitor);
    std::string Read(std::uint64_t offset, std::size_t bytes) const;

    std::string path_;
    std::optional<InputFile> file_;
    std::uint64_t position_ = 0; ///< of the first byte not handed over
    bool rewritten_ = false;     ///< lines come over old ones, up to the file's end
    std::string front_;          ///< what the file begins with, to notice that it was started over
    std::string ahead_;          ///< what stood after the position at the last look, while `rewritten_`
};

} // namespace NimaPost
