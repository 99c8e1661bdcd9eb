#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

namespace NimaPost {

/// Hands the results of numbered pieces of work from many threads to one, in the order of the pieces. Who is
/// far ahead waits, so that few results are in memory.
template <class Result>
class OrderedResults {
  public:
    OrderedResults(std::size_t pieces, unsigned threads)
        : pieces_(pieces), ahead_(kAheadOfEach * std::size_t{threads}) {}

    /// The next piece to work on; empty when there is none.
    std::optional<std::size_t> TakePiece() {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return stopped_ || next_ >= pieces_ || next_ < current_ + ahead_; });
        return stopped_ || next_ >= pieces_ ? std::nullopt : std::optional(next_++);
    }
    /// False if nobody wants results any more.
    bool Put(std::size_t piece, Result result) {
        std::unique_lock<std::mutex> lock(mutex_);
        Slot& slot = slots_[piece];
        changed_.wait(lock, [&] { return stopped_ || slot.results.size() < kMostWaiting; });
        if (!stopped_) {
            slot.results.push_back(std::move(result));
            changed_.notify_all();
        }
        return !stopped_;
    }
    void Finish(std::size_t piece) {
        const std::lock_guard<std::mutex> lock(mutex_);
        slots_[piece].finished = true;
        changed_.notify_all();
    }

    /// The next result of the piece; empty when there is none to come.
    std::optional<Result> Get(std::size_t piece) {
        std::unique_lock<std::mutex> lock(mutex_);
        Slot& slot = slots_[piece];
        changed_.wait(lock, [&] { return !slot.results.empty() || slot.finished; });
        if (slot.results.empty()) {
            slots_.erase(piece);
            current_ = piece + 1;
            changed_.notify_all();
            return std::nullopt;
        }
        Result result = std::move(slot.results.front());
        slot.results.pop_front();
        changed_.notify_all();
        return result;
    }
    /// Nobody wants results any more.
    void Stop() {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopped_ = true;
        changed_.notify_all();
    }

  private:
    static constexpr std::size_t kMostWaiting = 2;
    /// A thread works on at most so many pieces before the one whose results are being taken.
    static constexpr std::size_t kAheadOfEach = 4;

    struct Slot {
        std::deque<Result> results;
        bool finished = false;
    };

    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::size_t, Slot> slots_;
    std::size_t pieces_;
    std::size_t ahead_;
    std::size_t next_ = 0;
    std::size_t current_ = 0; ///< whose results are being taken
    bool stopped_ = false;
};

} // namespace NimaPost
