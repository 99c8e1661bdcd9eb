#pragma once

/// nima-ctl, the processes beside it, and the block that all of them share.

#include "ctl/Program.h"
#include "tests/support/Post.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <Diagnostics/Formats.h>
#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/RingBufferApi.h>

namespace Nima::Testing {

inline constexpr const char* kTrace = "SysTrace Buffer";
inline constexpr const char* kRings = "System Ring Buffers";

/// Calls nima-ctl in a child process.
inline Result Ctl(const std::vector<std::string>& arguments) {
    return Call("nima-ctl", NimaCtl::RunProgram, arguments);
}

/// A process of the device, which does something in the working directory until it is told to end.
class Host : public Child {
  public:
    /// `step` is done over and over; the constructor returns after the first time.
    explicit Host(const std::function<void()>& step)
        : Child([&step](const std::function<void()>& underWay) {
              step();
              underWay();
              for (;;) {
                  step();
              }
          }) {}
};

/// Two records of components 5 and 6 and a ring event; a burst of them now and then, as a device under load
/// has them.
inline void Trace() {
    static TRACE_RING_HANDLE ring = nullptr;
    static unsigned long number = 0;
    if (ring == nullptr) {
        SysTraceConfigure();
        GetTraceRingBuffer(RING_SCAN_ENGINE, &ring);
    }
    for (int i = 0; i < 100; ++i, ++number) {
        RTTrace_2(SYSTRACE_ID(5, 0, 77), number, ~number);
        RTTrace_3(SYSTRACE_ID(6, 2, 78), number, number + 1, number + 2);
        WriteEventToRingBuffer(ring, 0, 4, number, 0, 0, 0);
    }
    ::usleep(500);
}

/// The header of the block in the working directory, mapped as every process sees it.
class Header {
  public:
    Header() {
        const int file = ::open(kTrace, O_RDWR | O_CLOEXEC);
        mapped_ = ::mmap(nullptr, SYSTRACE_HEADER_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        EXPECT_NE(mapped_, MAP_FAILED);
        ::close(file);
    }
    Header(const Header&) = delete;
    Header& operator=(const Header&) = delete;
    ~Header() { ::munmap(mapped_, SYSTRACE_HEADER_SIZE); }
    volatile SysTraceHeader* operator->() const { return static_cast<volatile SysTraceHeader*>(mapped_); }

    /// What a dump does at its begin.
    void SetFilterAside() const {
        for (int i = 0; i < SYSTRACE_FILTER_WORDS; ++i) {
            (*this)->savedFilter[i] = (*this)->liveFilter[i];
            (*this)->liveFilter[i] = 0;
        }
        (*this)->savedState = 1;
    }
    /// And at its end.
    void BringFilterBack() const {
        for (int i = 0; i < SYSTRACE_FILTER_WORDS; ++i) {
            (*this)->liveFilter[i] = (*this)->savedFilter[i];
            (*this)->savedFilter[i] = 0;
        }
    }

  private:
    void* mapped_;
};

/// Does something in a process of its own at the same time, and waits for its end.
class Meanwhile : public Child {
  public:
    using Child::Child;
    Meanwhile(const Meanwhile&) = delete;
    Meanwhile& operator=(const Meanwhile&) = delete;
    ~Meanwhile() { EXPECT_EQ(EndBy(0), 0); }
};

/// A nima-ctl that runs beside the test.
class Running : public Child {
  public:
    explicit Running(const std::vector<std::string>& arguments, const char* errors = "/dev/null")
        : Child([&] {
              Become("nima-ctl", NimaCtl::RunProgram, arguments, {.output = "/dev/null", .errors = errors});
          }) {}
};

/// Looks every millisecond.
inline void Await(const std::function<bool()>& condition) {
    while (!condition()) {
        ::usleep(1000);
    }
}

constexpr std::uint32_t Bit(unsigned component) {
    return 0x80000000U >> component;
}
/// Component 5 or 6 is in the first word of its level.
constexpr int WordOf(unsigned level) {
    return static_cast<int>(level) * 4;
}

/// Whether nima-post finds a record of a component in the segment, or a dump of it.
inline bool HasRecordOf(unsigned component, const char* trace = kTrace) {
    const Result result =
        Post({"systrace", trace, "--json", "--last", "1", "--component", std::to_string(component)});
    return !result.Parsed()["records"].empty();
}

inline void AwaitRecordOf(unsigned component) {
    Await([component] { return HasRecordOf(component); });
}

} // namespace Nima::Testing
