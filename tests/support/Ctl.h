#pragma once

/// nima-ctl, the processes beside it, and the block that all of them share.

#include "ctl/Program.h"
#include "tests/support/Post.h"

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
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
class Host {
  public:
    /// `step` is done over and over; the constructor returns after the first time.
    explicit Host(const std::function<void()>& step) {
        int ready[2];
        EXPECT_EQ(::pipe2(ready, O_CLOEXEC), 0);
        std::fflush(nullptr);
        child_ = ::fork();
        if (child_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            step();
            if (::write(ready[1], "x", 1) != 1) {
                ::_exit(1);
            }
            for (;;) {
                step();
            }
        }
        char byte = 0;
        ::close(ready[1]);
        EXPECT_EQ(::read(ready[0], &byte, 1), 1);
        ::close(ready[0]);
    }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    ~Host() { Kill(); }

    pid_t Process() const { return child_; }
    void Signal(int number) const { ::kill(child_, number); }
    void Kill() {
        if (child_ > 0) {
            ::kill(child_, SIGKILL);
            ::waitpid(child_, nullptr, 0);
            child_ = -1;
        }
    }

  private:
    pid_t child_ = -1;
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
class Meanwhile {
  public:
    explicit Meanwhile(const std::function<void()>& action) {
        std::fflush(nullptr);
        child_ = ::fork();
        if (child_ == 0) {
            action();
            std::fflush(nullptr);
            ::_exit(::testing::Test::HasFailure() ? 1 : 0);
        }
    }
    Meanwhile(const Meanwhile&) = delete;
    Meanwhile& operator=(const Meanwhile&) = delete;
    ~Meanwhile() {
        int status = 0;
        ::waitpid(child_, &status, 0);
        EXPECT_EQ(status, 0);
    }

  private:
    pid_t child_ = -1;
};

/// A nima-ctl that runs beside the test.
class Running {
  public:
    explicit Running(const std::vector<std::string>& arguments, const char* errors = "/dev/null") {
        std::fflush(nullptr);
        child_ = ::fork();
        if (child_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            std::vector<const char*> words{"nima-ctl"};
            for (const std::string& argument : arguments) {
                words.push_back(argument.c_str());
            }
            if (std::freopen("/dev/null", "w", stdout) == nullptr ||
                std::freopen(errors, "w", stderr) == nullptr) {
                ::_exit(99);
            }
            ::_exit(NimaCtl::RunProgram(static_cast<int>(words.size()), words.data()));
        }
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    ~Running() { EndBy(SIGKILL); }

    /// Sends a signal, or none, and returns the exit status, or -1 if a signal ended it.
    int EndBy(int signal) {
        int status = -1;
        if (child_ > 0) {
            ::kill(child_, signal);
            ::waitpid(child_, &status, 0);
            child_ = -1;
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

  private:
    pid_t child_ = -1;
};

constexpr std::uint32_t Bit(unsigned component) {
    return 0x80000000U >> component;
}
/// Component 5 or 6 is in the first word of its level.
constexpr int WordOf(unsigned level) {
    return static_cast<int>(level) * 4;
}

/// How many records of a component nima-post finds in the segment.
inline std::size_t RecordsOf(unsigned component) {
    return Post({"systrace", kTrace, "--json", "--component", std::to_string(component)})
        .Parsed()["records"]
        .size();
}

inline void AwaitRecordOf(unsigned component) {
    while (RecordsOf(component) == 0) {
        ::usleep(1000);
    }
}

} // namespace Nima::Testing
