#pragma once

#include "tools/log/LogCursor.h"
#include "tools/log/LogProcess.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace NimaPost {

/// Reads the lines of several logs side by side, by boots and time. Within a log the order of its parts
/// stands, whatever its times are.
class LogMerge {
  public:
    template <class Sources>
    LogMerge(const Sources& sources, const std::vector<std::vector<LogPart>>& logs,
             const std::vector<LogRun>& runs, const std::vector<LogProcess>& processes)
        : runs_(runs), processes_(processes) {
        for (const auto& source : sources) {
            files_.push_back(&source);
        }
        for (const std::vector<LogPart>& parts : logs) {
            streams_.push_back({&parts, nullptr, {}, false});
        }
        for (Stream& stream : streams_) {
            Advance(stream);
        }
    }

    /// Null at the end. The entry holds until the next call.
    const LogEntry* Next();

  private:
    /// A boot, the unknown one last, and a time.
    using Key = std::pair<std::size_t, std::int64_t>;
    struct Stream {
        const std::vector<LogPart>* parts;
        std::unique_ptr<LogCursor> cursor;
        Key key;
        bool ended;
        LogEntry entry{};
        std::size_t boot = 0; ///< of the entry's part
    };

    void Advance(Stream& stream);
    static std::size_t ProcessOf(const LogEntry& entry);
    std::size_t BootOf(const LogPart& part) const;
    void Choose();

    const std::vector<LogRun>& runs_;
    const std::vector<LogProcess>& processes_;
    std::vector<const LogFile*> files_;
    std::vector<Stream> streams_;
    Stream* current_ = nullptr; ///< whose entry was handed over last
    Key limit_;                 ///< up to which no other stream's turn comes
};

} // namespace NimaPost
