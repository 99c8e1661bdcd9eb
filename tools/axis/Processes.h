#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace NimaPost {

/// A process of the device and what is known of it.
struct ProcessFacts {
    std::optional<std::size_t> boot; ///< from 1; empty if nothing shows it
    std::set<std::uint32_t> threads;
    /// On the axis; empty if nothing dates it.
    std::optional<std::int64_t> first;
    std::optional<std::int64_t> last;
    /// When the process that wrote after it in a trace began.
    std::optional<std::int64_t> next = {};
    std::string proof = {}; ///< in words: what tells that it is a process of its own, and its boot
    /// What tells the process and its boot, as a code.
    std::string evidence = "threads";
    bool assumed = false;     ///< its times are those of records without dates, or of lines that may be older
    bool doubtful = false;    ///< another reading is possible; the words name it
    bool probablyOne = false; ///< it may be several with the same threads; the words say so
    bool linesProbable = false; ///< they may be another process's; the words say so
    /// So may what has only its threads to tell its process: binary records, rings and crash logs.
    bool recordsProbable = false;
    /// Which crash logs name; empty where none of it is known, or its host has set none.
    std::optional<std::uint64_t> bootCycle = {};
    /// Of records: the process that has their threads, where more than threads tells that it need not be
    /// theirs.
    std::optional<std::size_t> notOf = {};

    /// What is only probable, as codes.
    std::vector<std::string> Doubts() const;
};

/// What proves a process that only binary trace and rings tell of.
inline constexpr const char* kOnlyUndated = "no process of the text logs has any of its threads";

/// The threads of processes that wrote one after the other.
using Succession = std::vector<std::set<std::uint32_t>>;

/// The processes of which a folder has traces, numbered from 1 in the order in which they are
/// added, which is the order of time as far as it is known.
class Processes {
  public:
    /// Before any process is added.
    void Announce(Succession succession) { successions_.push_back(std::move(succession)); }
    /// Processes in the order of time. In front of each, those are added that were announced to have written
    /// before it and are none of these. Returns their numbers.
    std::vector<std::size_t> AddInOrder(const std::vector<ProcessFacts>& all);

    /// The number of the process.
    std::size_t Add(ProcessFacts facts);
    /// Records without dates that a process wrote at these times.
    void Widen(std::size_t number, const ProcessFacts& facts);
    const std::vector<ProcessFacts>& All() const { return all_; }
    const ProcessFacts& operator[](std::size_t number) const { return all_[number - 1]; }

    /// The processes that have any of these threads, but for those of a later boot cycle than this one.
    std::vector<std::size_t> AllWithAnyOf(const std::set<std::uint32_t>& threads,
                                          std::optional<std::uint64_t> bootCycle = {}) const;
    /// The only one that has any of them and is of no other boot cycle; empty if there is none, or several.
    std::optional<std::size_t> WithAnyOf(const std::set<std::uint32_t>& threads,
                                         std::optional<std::uint64_t> bootCycle = {}) const;
    /// Whether both are known and differ.
    bool IsOfAnotherCycle(std::size_t number, std::optional<std::uint64_t> bootCycle) const;
    /// Whether any other has one of its threads: then identifiers recur, and so may all of them.
    bool SharesThreads(std::size_t number) const;
    /// Another process may have had the same threads; `why` in words.
    void DoubtRecords(std::size_t number, const std::string& why);
    void TakeBootCycle(std::size_t number, std::optional<std::uint64_t> bootCycle);

  private:
    class Walk;
    void AddUndated(const std::set<std::uint32_t>& threads, std::optional<std::int64_t> next);

    std::vector<Succession> successions_;
    std::vector<ProcessFacts> all_;
};

/// How a boot's number is to be taken: "probably", of a process that seems to be of the boot before;
/// "perhaps", of one that may be of another boot, or may not. Empty for one that is known, or not known at
/// all.
std::string_view DoubtOf(const ProcessFacts& facts);

/// The codes of what is only probable, with spaces between them.
std::string DoubtsInCodes(const ProcessFacts& facts);

/// "process 2, boot 1", "process 2, probably boot 1"; what is not known is said.
std::string ProcessInWords(std::size_t process, const ProcessFacts& facts);

} // namespace NimaPost
