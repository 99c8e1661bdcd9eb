#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace NimaPost {

/// A process of the device and what is known of it.
struct ProcessFacts {
    std::optional<std::size_t> boot; ///< from 1; empty if nothing shows it
    std::set<std::uint32_t> threads;
    /// On the axis; empty if nothing dates it.
    std::optional<std::int64_t> first;
    std::optional<std::int64_t> last;
    std::string proof = {}; ///< in words: what tells that it is a process of its own, and its boot
    /// What tells the process and its boot, as a code.
    std::string evidence = "threads";
    bool doubtful = false;      ///< another reading is possible; the words name it
    bool linesProbable = false; ///< they may be an older process's; the words say so
};

/// The processes of which a folder has traces, numbered from 1 in the order in which they are
/// added, which is the order of time as far as it is known.
class Processes {
  public:
    /// The number of the process.
    std::size_t Add(ProcessFacts facts);
    const std::vector<ProcessFacts>& All() const { return all_; }
    const ProcessFacts& operator[](std::size_t number) const { return all_[number - 1]; }

    /// The one process that has any of these threads; empty if none has, or several have.
    std::optional<std::size_t> WithAnyOf(const std::set<std::uint32_t>& threads) const;

  private:
    std::vector<ProcessFacts> all_;
};

/// "process 2, boot 1", or "probably boot 1"; what is not known is said.
std::string ProcessInWords(std::size_t process, std::optional<std::size_t> boot, bool probably = false);

} // namespace NimaPost
