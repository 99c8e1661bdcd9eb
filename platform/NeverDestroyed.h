#pragma once

#include <new>

namespace Nima::Common::System::OS::Diagnostics {

/// Static storage for an object that is built at load and lives to the very end, so that code that runs while
/// the process exits can still use it. What the object owns by then is not freed.
template <class T>
class NeverDestroyed {
  public:
    constexpr NeverDestroyed() = default;
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    void Build() { new (storage_) T; }
    T& get() { return *std::launder(static_cast<T*>(static_cast<void*>(storage_))); }

  private:
    alignas(T) unsigned char storage_[sizeof(T)]{};
};

} // namespace Nima::Common::System::OS::Diagnostics
