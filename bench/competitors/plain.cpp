/// Competitors that need no library, three programs chosen by the first argument: `floor` is what no
/// implementation can avoid, `minimum` the least that writes the same bytes, `fprintf` what a user without a
/// library would write.

#include "competitors/harness.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string_view>

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

using bench::Job;

namespace {

constexpr std::size_t kBufferSize = 4096;
constexpr std::size_t kLineSize = 1024;

std::int64_t Counter() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) + static_cast<std::int64_t>(now.tv_nsec);
}

std::uint32_t ThreadId() {
    return static_cast<std::uint32_t>(::pthread_self());
}

// --- lines ------------------------------------------------------------------------------------------------

/// Formats the message and copies it into a buffer of the thread's own.
[[gnu::noinline, gnu::format(printf, 1, 2)]] void FormatAndCopy(const char* format, ...) {
    thread_local char buffer[kBufferSize];
    thread_local std::size_t fill = 0;
    char message[kLineSize];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(message, sizeof(message), format, arguments);
    va_end(arguments);
    if (fill + static_cast<std::size_t>(length) > sizeof(buffer)) {
        fill = 0;
    }
    std::memcpy(buffer + fill, message, static_cast<std::size_t>(length));
    fill += static_cast<std::size_t>(length);
    bench::Keep(buffer[0]);
}

class Log {
  public:
    void Open(const std::string& path) {
        file_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        if (file_ == -1) {
            throw std::runtime_error("cannot open " + path);
        }
    }

    void Close() {
        Flush();
        ::fsync(file_);
        ::close(file_);
    }

    void Write(const char* line, std::size_t length) {
        const std::lock_guard guard(lock_);
        if (fill_ + length > sizeof(buffer_)) {
            Flush();
        }
        std::memcpy(buffer_ + fill_, line, length);
        fill_ += length;
    }

  private:
    void Flush() {
        if (::write(file_, buffer_, fill_) != static_cast<ssize_t>(fill_)) {
            throw std::runtime_error("short write");
        }
        fill_ = 0;
    }

    std::mutex lock_;
    std::size_t fill_ = 0;
    int file_ = -1;
    char buffer_[kBufferSize];
};

Log theLog;

char* Put(char* out, std::string_view text) {
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

char* PutHex8(char* out, std::uint32_t value) {
    for (int shift = 28; shift >= 0; shift -= 4) {
        *out++ = "0123456789abcdef"[value >> shift & 0xF];
    }
    return out;
}

char* PutThreeDigits(char* out, int value) {
    if (value < 0 || value > 999) {
        return std::to_chars(out, out + 12, value).ptr;
    }
    *out++ = static_cast<char>('0' + value / 100);
    *out++ = static_cast<char>('0' + value / 10 % 10);
    *out++ = static_cast<char>('0' + value % 10);
    return out;
}

/// The same bytes as one of the library's lines: everything is formatted before the lock is taken.
[[gnu::noinline, gnu::format(printf, 2, 3)]] void WriteLine(std::string_view name, const char* format, ...) {
    char line[kLineSize];
    char* out = std::to_chars(line, line + 24, Counter()).ptr;
    out = PutHex8(Put(out, " <0x"), ThreadId());
    int policy = 0;
    sched_param parameters{};
    ::pthread_getschedparam(::pthread_self(), &policy, &parameters);
    *out++ = ':';
    out = PutThreeDigits(out, parameters.sched_priority);
    out = Put(Put(Put(out, "> <WARN> <"), name), "> ");
    va_list arguments;
    va_start(arguments, format);
    const auto room = static_cast<std::size_t>(line + sizeof(line) - 2 - out);
    const int length = std::vsnprintf(out, room, format, arguments);
    va_end(arguments);
    if (length > 0) {
        out = Put(out + std::min(static_cast<std::size_t>(length), room - 1), "\r\n");
        theLog.Write(line, static_cast<std::size_t>(out - line));
    }
}

std::FILE* stream = nullptr;

[[gnu::noinline]] void PrintLine(const char* name, int page, const char* what) {
    std::fprintf(stream, "%lld <0x%8.8x> <%s> <%s> page %d of %s\r\n", static_cast<long long>(Counter()),
                 ThreadId(), "WARN", name, page, what);
}

/// An empty function that is really called.
[[gnu::noinline]] void Nothing(const char* format, int page, const char* what) {
    asm volatile("" : : "r"(format), "r"(page), "r"(what));
}

template <class Call>
std::function<void(int, int)> Loop(Call call) {
    return [=](int, int calls) {
        for (int i = 0; i < calls; ++i) {
            call(i);
        }
    };
}

// --- binary records and ring events -----------------------------------------------------------------------

using Word = std::atomic_ref<std::uint32_t>;

/// A file of a fixed size, mapped as the library maps its own, with the write index in a cache line of its
/// own.
class Mapping {
  public:
    struct Entry {
        std::uint32_t id;
        std::uint32_t value;
    };

    explicit Mapping(std::size_t size) : size_(size) {}

    void Open(const std::string& path) {
        if (words_ != nullptr) {
            return;
        }
        const int file = ::open(path.c_str(), O_RDWR | O_CREAT, 0600);
        if (file == -1 || ::posix_fallocate(file, 0, static_cast<off_t>(size_)) != 0) {
            throw std::runtime_error("cannot make " + path);
        }
        void* const view = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        ::close(file);
        if (view == MAP_FAILED) {
            throw std::runtime_error("cannot map " + path);
        }
        words_ = static_cast<std::uint32_t*>(view);
    }

    /// The library's trace, too, has its filter beside the write index.
    void LetThrough() { Word(words_[11]).store(~0U); }
    bool IsLetThrough(std::uint32_t id) {
        return (Word(words_[11]).load(std::memory_order_relaxed) & 0x80000000U >> (id >> 22 & 31)) != 0;
    }

    std::uint32_t Claim(std::uint32_t mask) { return (Word(words_[2]).fetch_add(1) + 1) & mask; }

    /// `slot` counts in units of `words` words, after a header of 256 bytes.
    std::uint32_t* Slot(std::uint32_t slot, std::uint32_t words) {
        return words_ + 64 + std::size_t{slot} * words;
    }

  private:
    std::size_t size_;
    std::uint32_t* words_ = nullptr;
};

void Store(std::uint32_t& word, std::uint32_t value) {
    Word(word).store(value, std::memory_order_relaxed);
}

Mapping trace(9437184);
constexpr std::uint32_t kTraceMask = (1U << 20) - 1;

template <class... Words>
[[gnu::noinline]] void StoreRecord(std::uint32_t id, Words... arguments) {
    if (!trace.IsLetThrough(id)) {
        return;
    }
    std::uint32_t* const first = trace.Slot(trace.Claim(kTraceMask), 2);
    Store(first[0], id);
    Store(first[1], static_cast<std::uint32_t>(Counter()));
    const auto next = [=](std::uint32_t value) {
        std::uint32_t* const entry = trace.Slot(trace.Claim(kTraceMask), 2);
        Store(entry[0], id | 0x80000000U);
        Store(entry[1], value);
    };
    (next(arguments), ...);
    next(ThreadId());
}

/// The clock, and as many additions as a record has entries.
template <int kEntries>
[[gnu::noinline]] void ReadClockAndAdd() {
    for (int i = 0; i < kEntries; ++i) {
        bench::Keep(trace.Claim(kTraceMask));
        if (i == 0) {
            bench::Keep(Counter());
        }
    }
}

Mapping rings(503808);
constexpr std::uint32_t kRingMask = 2047;

[[gnu::noinline]] void StoreEvent(std::uint32_t code, std::uint32_t a, std::uint32_t b, std::uint32_t c,
                                  std::uint32_t d) {
    const auto now = static_cast<std::uint64_t>(Counter());
    const std::uint32_t record[8] = {
        static_cast<std::uint32_t>(now), static_cast<std::uint32_t>(now >> 32), ThreadId(), code, a, b, c, d};
    std::memcpy(rings.Slot(rings.Claim(kRingMask), 8), record, sizeof(record));
}

void OpenTrace(const std::string& path, int) {
    trace.Open(path);
    trace.LetThrough();
}

void OpenRings(const std::string& path, int) {
    rings.Open(path);
}

std::map<std::string, Job> FloorJobs() {
    const Job line{nullptr, Loop([](int i) { FormatAndCopy("page %d of %s", i, bench::kWhat); }), nullptr};
    const Job nothing{nullptr, Loop([](int i) { Nothing("page %d of %s", i, bench::kWhat); }), nullptr};
    return {{"line-own", line},
            {"line-shared", line},
            {"filtered", nothing},
            {"record-0-filtered", nothing},
            {"record-3-filtered", nothing},
            {"record-0", {OpenTrace, Loop([](int) { ReadClockAndAdd<2>(); }), nullptr}},
            {"record-3", {OpenTrace, Loop([](int) { ReadClockAndAdd<5>(); }), nullptr}}};
}

std::map<std::string, Job> MinimumJobs() {
    const Job line{[](const std::string& path, int) { theLog.Open(path); },
                   Loop([](int i) { WriteLine(bench::kName, "page %d of %s", i, bench::kWhat); }),
                   [] { theLog.Close(); }};
    constexpr std::uint32_t kId = 1U << 22 | 1;
    return {
        {"line-own", line},
        {"line-shared", line},
        {"record-0", {OpenTrace, Loop([](int) { StoreRecord(kId); }), nullptr}},
        {"record-3",
         {OpenTrace, Loop([](int i) { StoreRecord(kId, static_cast<std::uint32_t>(i), 2U, 3U); }), nullptr}},
        {"ring",
         {OpenRings, Loop([](int i) { StoreEvent(1, static_cast<std::uint32_t>(i), 3, 4, 5); }), nullptr}}};
}

std::map<std::string, Job> PrintfJobs() {
    const Job line{[](const std::string& path, int) {
                       static char buffer[kBufferSize];
                       stream = std::fopen(path.c_str(), "w");
                       if (stream == nullptr || std::setvbuf(stream, buffer, _IOFBF, sizeof(buffer)) != 0) {
                           throw std::runtime_error("cannot open " + path);
                       }
                   },
                   Loop([](int i) { PrintLine(bench::kName, i, bench::kWhat); }),
                   [] { std::fclose(stream); }};
    return {{"line-own", line}, {"line-shared", line}};
}

} // namespace

int main(int argc, char** argv) {
    const std::string_view part = argc > 1 ? argv[1] : "";
    if (part == "floor") {
        return bench::Serve(FloorJobs());
    }
    if (part == "minimum") {
        return bench::Serve(MinimumJobs());
    }
    if (part == "fprintf") {
        return bench::Serve(PrintfJobs());
    }
    std::fprintf(stderr, "usage: %s floor | minimum | fprintf\n", argv[0]);
    return 2;
}
