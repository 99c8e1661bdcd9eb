#pragma once

#include "Diagnostics/TextComposer.h"

#include <cstddef>
#include <cstdint>

#include <Diagnostics/Types.h>

namespace Nima::Common::System::OS::Diagnostics {

/// The part of a header that describes the thread, " <0x%8.8x:%03d> ". It can be composed before the lock is
/// taken under which the time is read.
class ThreadPart {
  public:
    ThreadPart(std::uint32_t threadId, int priority);
    /// The calling thread's, as it is now.
    static ThreadPart OfCaller();

    const char* text() const { return text_; }
    std::size_t length() const { return length_; }
    static constexpr std::size_t kRoom = 32;

  private:
    char text_[kRoom];
    std::size_t length_;
};

/// Enough for a counter header and its terminating zero.
inline constexpr std::size_t kCounterHeaderRoom = 64;

/// "%lld" and the thread, into at least `kCounterHeaderRoom` bytes; returns the header's length.
int ComposeCounterHeader(char* buffer, long long counter, const ThreadPart& thread);

/// "%lld <0x%8.8x:%03d> "; returns the header's length.
int ComposeCounterHeader(char* buffer, std::size_t size, long long counter, std::uint32_t threadId,
                         int priority);

/// "%04d%02d%02d%02d%02d%02d.%03d <0x%8.8x:%03d> " with signed fields; returns the header's length.
int ComposeDateHeader(char* buffer, std::size_t size, const _SYSTEMTIME& time, std::uint32_t threadId,
                      int priority);

/// How the 16-bit fields of a time are read.
enum class DateFields { kSigned, kAsTheyAre };

/// "%04d%02d%02d%02d%02d%02d.%03d", without the day of the week.
void ComposeDate(TextComposer& text, const _SYSTEMTIME& time, DateFields fields);

/// "<%s> <%s> " with the level's name and the component's; returns its length.
int ComposePrefix(char* buffer, std::size_t size, int level, const char* name);

} // namespace Nima::Common::System::OS::Diagnostics
