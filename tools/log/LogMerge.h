#pragma once

#include "tools/log/LogCursor.h"
#include "tools/log/LogProcess.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

namespace NimaPost {

/// Reads the lines of several logs side by side, by boots and time. Within a log the order of its parts
/// stands, whatever its times are.
class LogMerge {
  public:
    /// All of these outlive the object. A sieve may leave lines of a log out that is the only one; it may be
    /// null.
    LogMerge(const std::vector<const LogFile*>& files, const std::vector<std::vector<LogPart>>& logs,
             const std::vector<LogRun>& runs, const std::vector<LogProcess>& processes,
             const LineSieve* sieve);

    /// Null at the end. The entry holds until the next call.
    const LogEntry* Next();

  private:
    /// A boot, the unknown one last, and a time.
    using Key = std::pair<std::size_t, std::int64_t>;
    struct Stream {
        LogCursor cursor;
        LogEntry entry{};
        std::size_t boot = 0; ///< of the entry's part
        Key key{0, std::numeric_limits<std::int64_t>::min()};
        bool ended = false;
    };

    void Advance(Stream& stream);
    static std::size_t ProcessOf(const LogEntry& entry);
    std::size_t BootOf(const LogPart& part) const;
    void Choose();

    const std::vector<LogProcess>& processes_;
    std::vector<Stream> streams_;
    Stream* current_ = nullptr; ///< whose entry was handed over last
    Key limit_;                 ///< up to which no other stream's turn comes
};

} // namespace NimaPost
