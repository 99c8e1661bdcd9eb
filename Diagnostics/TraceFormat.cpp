#include "Diagnostics/TraceFormat.h"

#include "Diagnostics/TraceLevel.h"
#include "platform/Clock.h"
#include "platform/Handles.h"
#include "platform/Text.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include <Diagnostics/TraceApi.h>

namespace Nima::Common::System::OS::Diagnostics {

TextComposer::~TextComposer() {
    if (size_ > 0) {
        buffer_[std::min(length_, size_ - 1)] = '\0';
    }
}

void TextComposer::Add(char c) {
    if (length_ < size_) {
        buffer_[length_] = c;
    }
    ++length_;
}

void TextComposer::Add(const char* text, std::size_t length) {
    if (length_ < size_) {
        std::memcpy(buffer_ + length_, text, std::min(length, size_ - length_));
    }
    length_ += length;
}

void TextComposer::Add(const char* text) {
    Add(text, std::strlen(text));
}

void TextComposer::AddDecimal(long long value) {
    char digits[24];
    const auto* const end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
    Add(digits, static_cast<std::size_t>(end - digits));
}

void TextComposer::AddPadded(int value, int width) {
    char digits[16];
    const long long magnitude = value < 0 ? -static_cast<long long>(value) : value;
    const auto* const end = std::to_chars(digits, digits + sizeof(digits), magnitude).ptr;
    if (value < 0) {
        Add('-');
        --width;
    }
    for (auto missing = width - (end - digits); missing > 0; --missing) {
        Add('0');
    }
    Add(digits, static_cast<std::size_t>(end - digits));
}

void TextComposer::AddHex8(std::uint32_t value) {
    char digits[8];
    for (int i = 7; i >= 0; --i) {
        digits[i] = "0123456789abcdef"[value & 0xF];
        value >>= 4;
    }
    Add(digits, sizeof(digits));
}

namespace {

void AddThread(TextComposer& text, std::uint32_t threadId, int priority) {
    text.Add(" <0x", 4);
    text.AddHex8(threadId);
    text.Add(':');
    text.AddPadded(priority, 3);
    text.Add("> ", 2);
}

} // namespace

int ComposeCounterHeader(char* buffer, std::size_t size, long long counter, std::uint32_t threadId,
                         int priority) {
    TextComposer text(buffer, size);
    text.AddDecimal(counter);
    AddThread(text, threadId, priority);
    return text.length();
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
    AddThread(text, threadId, priority);
    return text.length();
}

int ComposePrefix(char* buffer, std::size_t size, int level, const char* name) {
    const LevelName& levelName = NameOfLevel(level);
    TextComposer text(buffer, size);
    text.Add('<');
    text.Add(levelName.text, levelName.length);
    text.Add("> <", 3);
    text.Add(name);
    text.Add("> ", 2);
    return text.length();
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
