#include "Diagnostics/TraceFormat.h"

#include "Diagnostics/TraceLevel.h"
#include "catalogue/Marks.h"
#include "platform/Clock.h"
#include "platform/Handles.h"
#include "platform/Text.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <string_view>

#include <Diagnostics/TraceApi.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

char* Put(char* out, std::string_view text) {
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

/// "%8.8x", all digits at once: each digit is a byte of one number, the first in the lowest byte.
char* PutHex8(char* out, std::uint32_t value) {
    static_assert(std::endian::native == std::endian::little);
    std::uint64_t digits = __builtin_bswap32(value);
    digits = (digits | digits << 16) & 0x0000FFFF0000FFFF;
    digits = (digits | digits << 8) & 0x00FF00FF00FF00FF;
    digits = (digits >> 4 & 0x000F000F000F000F) | (digits & 0x000F000F000F000F) << 8;
    constexpr std::uint64_t kOnes = 0x0101010101010101;
    const std::uint64_t letters = (digits + 6 * kOnes) >> 4 & kOnes;
    digits += '0' * kOnes + letters * ('a' - '0' - 10);
    std::memcpy(out, &digits, sizeof(digits));
    return out + sizeof(digits);
}

/// "%03d"
char* PutPriority(char* out, int priority) {
    constexpr int kThreeDigits = 1000;
    if (priority < 0 || priority >= kThreeDigits) {
        TextComposer text(out, ThreadPart::kRoom / 2);
        text.AddPadded(priority, 3);
        return out + text.length();
    }
    *out++ = static_cast<char>('0' + priority / 100);
    *out++ = static_cast<char>('0' + priority / 10 % 10);
    *out++ = static_cast<char>('0' + priority % 10);
    return out;
}

} // namespace

ThreadPart::ThreadPart(std::uint32_t threadId, int priority) {
    char* out = PutHex8(Put(text_, Catalogue::kThreadMark), threadId);
    *out++ = Catalogue::kPriorityMark;
    out = Put(PutPriority(out, priority), Catalogue::kHeaderEnd);
    length_ = static_cast<std::size_t>(out - text_);
}

ThreadPart ThreadPart::OfCaller() {
    return {CurrentThreadId(), _get_thread_priority_helper(nullptr)};
}

int ComposeCounterHeader(char* buffer, long long counter, const ThreadPart& thread) {
    constexpr std::size_t kDigits = kCounterHeaderRoom - ThreadPart::kRoom;
    char* const out = std::to_chars(buffer, buffer + kDigits, counter).ptr;
    // Copies the part with its full room, which needs no call; the end still lies within the room for a
    // header.
    std::memcpy(out, thread.text(), ThreadPart::kRoom);
    char* const end = out + thread.length();
    *end = '\0';
    return static_cast<int>(end - buffer);
}

int ComposeCounterHeader(char* buffer, std::size_t size, long long counter, std::uint32_t threadId,
                         int priority) {
    char whole[kCounterHeaderRoom];
    const int length = ComposeCounterHeader(whole, counter, ThreadPart(threadId, priority));
    TextComposer text(buffer, size);
    text.Add(whole, static_cast<std::size_t>(length));
    return length;
}

void ComposeDate(TextComposer& text, const _SYSTEMTIME& time, DateFields fields) {
    const auto field = [&text, fields](std::uint16_t value, int width) {
        text.AddPadded(fields == DateFields::kSigned ? static_cast<std::int16_t>(value) : value, width);
    };
    field(time.wYear, 4);
    field(time.wMonth, 2);
    field(time.wDay, 2);
    field(time.wHour, 2);
    field(time.wMinute, 2);
    field(time.wSecond, 2);
    text.Add('.');
    field(time.wMilliseconds, 3);
}

int ComposeDateHeader(char* buffer, std::size_t size, const _SYSTEMTIME& time, std::uint32_t threadId,
                      int priority) {
    TextComposer text(buffer, size);
    ComposeDate(text, time, DateFields::kSigned);
    const ThreadPart thread(threadId, priority);
    text.Add(thread.text(), thread.length());
    return text.length();
}

int ComposePrefix(char* buffer, std::size_t size, int level, const char* name) {
    const LevelName& levelName = NameOfLevel(level);
    const std::size_t nameLength = std::strlen(name);
    constexpr std::string_view kBetween = Catalogue::kLevelEnd;
    constexpr std::string_view kEnd = Catalogue::kTracerEnd;
    const std::size_t length = 1 + levelName.length + kBetween.size() + nameLength + kEnd.size();
    if (length >= size || sizeof(levelName.text) >= size) {
        TextComposer text(buffer, size);
        text.Add(Catalogue::kLevelBegin);
        text.Add(levelName.text, levelName.length);
        text.Add(kBetween.data(), kBetween.size());
        text.Add(name, nameLength);
        text.Add(kEnd.data(), kEnd.size());
        return text.length();
    }
    char* out = buffer;
    *out++ = Catalogue::kLevelBegin;
    std::memcpy(out, levelName.text, sizeof(levelName.text));
    out = Put(out + levelName.length, kBetween);
    out = Put(Put(out, {name, nameLength}), kEnd);
    *out = '\0';
    return static_cast<int>(length);
}

} // namespace Nima::Common::System::OS::Diagnostics

using namespace Nima::Common::System::OS::Diagnostics;

int TraceFormatHeader(char* buffer, int size, int level, int channel, const char* name) {
    constexpr int kCounterRoom = 176;
    if (buffer == nullptr || size < kCounterRoom) {
        return 0;
    }
    _LARGE_INTEGER counter;
    _query_performance_counter_helper(&counter);
    const int header = ComposeCounterHeader(buffer, kCounterRoom, counter.QuadPart, CurrentThreadId(),
                                            _get_thread_priority_helper(nullptr));
    const auto room = static_cast<std::size_t>(size - header);
    if (name != nullptr) {
        return header + ComposePrefix(buffer + header, room, level, name);
    }
    return header +
           _snprintf_s_helper(buffer + header, room, room, "<%s> <ch:%d> ", NameOfLevel(level).text, channel);
}

int TraceFormatPerfTag(char* buffer, int size, const char* f1, bool flag, const char* f2, const char* f3,
                       const char* f4, const char* f5, const char* f6) {
    if (f2 == nullptr || f1 == nullptr) {
        return 0;
    }
    if (buffer == nullptr || f3 == nullptr || f4 == nullptr) {
        return 1;
    }
    const std::size_t room = size > 0 ? static_cast<std::size_t>(size) : 0;
    const char* const flagText = flag ? "True" : "False";
    if (f5 == nullptr) {
        f5 = "(null)";
    }
    // An absent sixth field and an empty one print the same line.
    return _snprintf_s_helper(buffer, room, room, " ::%s::%s::%s::%s::%s::%s::%s::\n", f1, flagText, f2, f3,
                              f4, f5, f6 != nullptr ? f6 : "");
}
