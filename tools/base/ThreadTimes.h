#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace NimaPost {

/// A time or counter for each thread. Looked up once for each line of a log, so it is one flat table; the
/// thread of the last call is found at once.
class ThreadTimes {
  public:
    std::size_t size() const { return size_; }

    void clear() {
        slots_.clear();
        size_ = last_ = 0;
    }

    /// Null for a thread that is not there.
    const std::int64_t* Find(std::uint32_t thread) const {
        if (slots_.empty()) {
            return nullptr;
        }
        const Slot& slot = slots_[Place(thread)];
        return slot.used ? &slot.time : nullptr;
    }

    /// The thread's time, which is `time` if it was not there; and whether that is so. The reference holds
    /// until the next call.
    std::pair<std::int64_t&, bool> TryEmplace(std::uint32_t thread, std::int64_t time) {
        if (last_ < slots_.size() && slots_[last_].used && slots_[last_].thread == thread) {
            return {slots_[last_].time, false};
        }
        if (slots_.size() < 2 * (size_ + 1)) {
            Grow();
        }
        last_ = Place(thread);
        Slot& slot = slots_[last_];
        const bool fresh = !slot.used;
        if (fresh) {
            slot = {time, thread, true};
            ++size_;
        }
        return {slot.time, fresh};
    }

    template <class Visitor>
    void ForEach(const Visitor& visitor) const {
        for (const Slot& slot : slots_) {
            if (slot.used) {
                visitor(slot.thread, slot.time);
            }
        }
    }

  private:
    struct Slot {
        std::int64_t time = 0;
        std::uint32_t thread = 0;
        bool used = false;
    };

    /// Where a thread is, or would be put.
    std::size_t Place(std::uint32_t thread) const {
        const std::size_t mask = slots_.size() - 1;
        // Identifiers are addresses, of which the low digits are alike.
        std::size_t at = (thread * 0x9E3779B1U >> 8) & mask;
        while (slots_[at].used && slots_[at].thread != thread) {
            at = (at + 1) & mask;
        }
        return at;
    }

    void Grow() {
        std::vector<Slot> old(slots_.empty() ? kFewest : 2 * slots_.size());
        old.swap(slots_);
        for (const Slot& slot : old) {
            if (slot.used) {
                slots_[Place(slot.thread)] = slot;
            }
        }
    }

    static constexpr std::size_t kFewest = 16;

    std::vector<Slot> slots_; ///< a power of two, at least half of them free
    std::size_t size_ = 0;
    std::size_t last_ = 0;
};

} // namespace NimaPost
