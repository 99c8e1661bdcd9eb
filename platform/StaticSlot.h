#pragma once

#include "platform/Pause.h"

#include <atomic>
#include <new>
#include <utility>

namespace Nima::Common::System::OS::Diagnostics {

/// A place for an object that is built at load and torn down at unload while other threads may still call in.
/// Users go through `Use`. Before the object is built, and once its end has begun, they find nothing and give
/// up silently; the end waits for the users that are inside.
///
/// The slot itself needs no construction and has no destructor, so it can be asked safely at any time.
template <class T>
class StaticSlot {
  public:
    constexpr StaticSlot() = default;

    class Use {
      public:
        explicit Use(StaticSlot& slot) : slot_(slot), object_(slot.Enter()) {}
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        ~Use() { slot_.Leave(); }

        explicit operator bool() const { return object_ != nullptr; }
        T* operator->() const { return object_; }
        T& operator*() const { return *object_; }

      private:
        StaticSlot& slot_;
        T* object_;
    };

    template <class... Arguments>
    void Build(Arguments&&... arguments) {
        new (storage_) T(std::forward<Arguments>(arguments)...);
        live_.store(true);
    }

    /// The two halves of a use, for a use that is not bound to a scope. `Enter` returns null if there is
    /// nothing to use; `Leave` must be called all the same.
    T* Enter() {
        users_.fetch_add(1);
        return live_.load() ? Object() : nullptr;
    }
    void Leave() { users_.fetch_sub(1); }

    /// For the child of a fork: the users were other threads, which do not exist there.
    void ForgetUsers() { users_.store(0); }

    /// Whether the object's end has not begun yet.
    bool IsLive() const { return live_.load(); }

    /// If users stay inside, the object is not destroyed.
    void End() {
        live_.store(false);
        if (AwaitUsers()) {
            Object()->~T();
        }
    }

    /// Waits for users to leave, but not for ever: the thread that ends the process may be one of them, in a
    /// signal handler. Returns false if some are still inside.
    bool AwaitUsers() const {
        for (int turn = 0; users_.load() > 0; ++turn) {
            if (turn == kPatience) {
                return false;
            }
            BriefPause();
        }
        return true;
    }

  private:
    static constexpr int kPatience = 10000;

    T* Object() { return std::launder(static_cast<T*>(static_cast<void*>(storage_))); }

    std::atomic<bool> live_{false};
    std::atomic<int> users_{0};
    alignas(T) unsigned char storage_[sizeof(T)]{};
};

/// Builds the object of a slot at load and ends it at unload. All keepers are in one source file, where the
/// order of definition is the order of construction.
template <class T>
class StaticSlotKeeper {
  public:
    template <class... Arguments>
    explicit StaticSlotKeeper(StaticSlot<T>& slot, Arguments&&... arguments) : slot_(slot) {
        slot_.Build(std::forward<Arguments>(arguments)...);
    }
    StaticSlotKeeper(const StaticSlotKeeper&) = delete;
    StaticSlotKeeper& operator=(const StaticSlotKeeper&) = delete;
    ~StaticSlotKeeper() { slot_.End(); }

  private:
    StaticSlot<T>& slot_;
};

} // namespace Nima::Common::System::OS::Diagnostics
