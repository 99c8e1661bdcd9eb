/// nima-post beside running processes: `watch` and `listen` as a user sees them, run as programs.

#include "tests/support/Sandbox.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/RingBufferApi.h>

namespace Nima::Testing {

namespace {

using Json = nlohmann::json;

constexpr const char* kTrace = "SysTrace Buffer";
constexpr const char* kRings = "System Ring Buffers";

/// nima-post as a child whose output is read line by line. Waits for output without a limit: if the program
/// never shows it, the test's own time limit ends the wait.
class Program {
  public:
    explicit Program(const std::vector<std::string>& arguments) {
        int output[2];
        EXPECT_EQ(::pipe2(output, O_CLOEXEC), 0);
        Start(arguments, [&] {
            ::dup2(output[1], STDOUT_FILENO);
            ::dup2(output[1], STDERR_FILENO);
        });
        ::close(output[1]);
        from_ = output[0];
    }

    /// The same on a terminal with that many columns.
    Program(const std::vector<std::string>& arguments, unsigned short columns, unsigned short rows = 10,
            void (*last)() = nullptr) {
        from_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        EXPECT_EQ(::grantpt(from_), 0);
        EXPECT_EQ(::unlockpt(from_), 0);
        const int terminal = ::open(::ptsname(from_), O_RDWR | O_NOCTTY | O_CLOEXEC);
        SetColumns(columns, rows);
        Start(arguments, [&] {
            ::setenv("TERM", "xterm", 1);
            ::setsid();
            ::ioctl(terminal, TIOCSCTTY, 0);
            for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
                ::dup2(terminal, stream);
            }
            if (last != nullptr) {
                last();
            }
        });
        ::close(terminal);
    }

    /// The same on a large terminal, as the job of a shell that says whether the terminal echoes when the job
    /// is stopped, and continues it.
    static Program AsJob(const std::vector<std::string>& arguments) {
        return Program(arguments, 100, 40, BeShell);
    }

    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program() { ::close(from_); }

    std::string Line() {
        ReadUpTo("\n");
        const std::size_t end = std::min(read_.find('\n'), read_.size() - 1) + 1;
        std::string line = read_.substr(0, end);
        read_.erase(0, end);
        return line;
    }

    /// Reads until the text appears; returns everything up to its end.
    std::string ReadUpTo(const std::string& text) {
        while (read_.find(text) == std::string::npos && More()) {
        }
        const std::size_t at = read_.find(text);
        return read_.substr(0, at == std::string::npos ? at : at + text.size());
    }

    /// Waits for the end of the program and returns everything up to it.
    std::string Rest() {
        while (More()) {
        }
        return std::move(read_);
    }

    void Forget() { read_.clear(); }
    void Type(char key) const { EXPECT_EQ(::write(from_, &key, 1), 1); }
    void Signal(int number) const { child_->Signal(number); }
    void SetColumns(unsigned short columns, unsigned short rows = 10) const {
        const winsize size{rows, columns, 0, 0};
        EXPECT_EQ(::ioctl(from_, TIOCSWINSZ, &size), 0);
    }

    /// The exit status, or -1 if a signal ended it.
    int Status() { return child_->EndBy(0); }

  private:
    /// Returns in the job.
    static void BeShell() {
        const pid_t job = ::fork();
        if (job == 0) {
            std::signal(SIGTTOU, SIG_IGN);
            ::setpgid(0, 0);
            ::tcsetpgrp(STDIN_FILENO, ::getpid());
            std::signal(SIGTTOU, SIG_DFL);
            return;
        }
        int status = 0;
        while (::waitpid(job, &status, WUNTRACED) == job && WIFSTOPPED(status)) {
            termios mode{};
            ::tcgetattr(STDIN_FILENO, &mode);
            ::dprintf(STDOUT_FILENO, "<stopped, %s>", (mode.c_lflag & ECHO) != 0 ? "echoes" : "silent");
            ::kill(job, SIGCONT);
        }
        ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : 99);
    }

    template <typename Prepare>
    void Start(const std::vector<std::string>& arguments, const Prepare& prepare) {
        std::vector<std::string> words{NIMA_POST};
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> pointers;
        pointers.reserve(words.size() + 1);
        for (std::string& word : words) {
            pointers.push_back(word.data());
        }
        pointers.push_back(nullptr);
        child_.emplace([&] {
            prepare();
            ::execv(pointers[0], pointers.data());
            ::_exit(127);
        });
    }

    bool More() {
        char bytes[4096];
        const ssize_t got = ::read(from_, bytes, sizeof(bytes));
        if (got > 0) {
            read_.append(bytes, static_cast<std::size_t>(got));
        }
        return got > 0 || (got < 0 && errno == EINTR);
    }

    std::optional<Child> child_;
    int from_ = -1;
    std::string read_;
};

/// A process that traces on demand, in the working directory.
class Device {
  public:
    pid_t Process() const { return child_.Process(); }

    /// Writes that many records of component 5 and as many ring events, and returns when they are written.
    void Write(unsigned count) const {
        orders_->wanted += count;
        while (orders_->written != orders_->wanted) {
            ::usleep(1000);
        }
    }
    void End() { child_.EndBy(SIGKILL); }

  private:
    /// In memory that both processes share.
    struct Orders {
        std::atomic<unsigned> wanted;
        std::atomic<unsigned> written;
    };

    void Obey(const std::function<void()>& underWay) const {
        TRACE_RING_HANDLE ring = nullptr;
        SysTraceConfigure();
        GetTraceRingBuffer(RING_SCAN_ENGINE, &ring);
        underWay();
        for (;; ::usleep(1000)) {
            for (; orders_->written != orders_->wanted; ++orders_->written) {
                const unsigned number = orders_->written;
                RTTrace_2(SYSTRACE_ID(5, 1, 77), number, 1000 + number);
                WriteEventToRingBuffer(ring, 0, 4, number, 0, 0, 0);
            }
        }
    }

    Orders* orders_ = static_cast<Orders*>(
        ::mmap(nullptr, sizeof(Orders), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    Child child_{[this](const std::function<void()>& underWay) { Obey(underWay); }};
};

/// The value at a place in a tick, or null if the tick has no such place: a look that finds no segment shows
/// its problem and nothing else.
Json At(const Json& tick, const char* place) {
    const Json::json_pointer pointer(place);
    return tick.contains(pointer) ? tick.at(pointer) : Json();
}

/// Takes the ticks of `watch --json` one after the other.
Json NextTick(Program& watch) {
    return Json::parse(watch.Line(), nullptr, false);
}

/// Reads on to the first tick that satisfies the condition.
template <typename Condition>
Json TickWith(Program& watch, const Condition& condition) {
    for (;;) {
        Json tick = NextTick(watch);
        if (tick.is_discarded() || condition(tick)) {
            return tick;
        }
    }
}

/// Sends from a port of its own to a port on loopback.
void Send(int port, const std::string& datagram) {
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::sendto(socket, datagram.data(), datagram.size(), 0,
                       reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
              static_cast<ssize_t>(datagram.size()));
    ::close(socket);
}

std::string Notification(const std::string& file) {
    return "crash-notification\r\nfile: " + file + "\r\ndir:/var/cores\r\n";
}

class WatchTest : public Sandbox {};
class ListenTest : public Sandbox {};

} // namespace

TEST_F(WatchTest, SeesWhatAProcessWritesWhileItRuns) {
    WriteFile("names",
              "component 5 Scanner\nevent 5 77 step \"step %u of %u\"\nring ScanEngine 4 motor \"at %u\"\n");
    Program watch({"watch", "--json", "--interval", "20", "--last", "2", "--names", "names"});
    const Json before = NextTick(watch);
    EXPECT_NE(At(before, "/systrace/problem").dump().find(kTrace), std::string::npos);
    EXPECT_NE(At(before, "/rings/problem").dump().find(kRings), std::string::npos);

    Device device;
    device.Write(3);
    const Json first = TickWith(watch, [](const Json& tick) { return At(tick, "/rings/rings/0/used") == 3; });
    EXPECT_EQ(At(first, "/rings/process"), device.Process());
    EXPECT_EQ(At(first, "/rings/lives"), true);

    NextTick(watch); // The trace was looked at before the rings.
    device.Write(200);
    // Rings may be looked at later than the trace, and a record counts before it is complete.
    std::uint64_t records = 0;
    const Json last = TickWith(watch, [&](const Json& tick) {
        records += tick.at("systrace").value("new_records", std::uint64_t{0});
        return At(tick, "/systrace/records/1/text") == "step 202 of 1202" &&
               At(tick, "/rings/rings/0/newest/text") == "motor: at 202";
    });
    EXPECT_EQ(records, 200U);
    EXPECT_EQ(At(last, "/systrace/state_name"), "tracing");
    EXPECT_EQ(At(last, "/systrace/records").size(), 2U);
    EXPECT_EQ(At(last, "/rings/rings/0/name"), "ScanEngine");

    // Beyond the ring's 256 slots the newest is right before the oldest.
    device.Write(100);
    const Json wrapped = TickWith(
        watch, [](const Json& tick) { return At(tick, "/rings/rings/0/newest/text") == "motor: at 302"; });
    EXPECT_EQ(At(wrapped, "/rings/rings/0/used"), 256U);

    device.End();
    TickWith(watch, [](const Json& tick) { return At(tick, "/rings/lives") == false; });
    std::filesystem::resize_file(kTrace, 100);
    std::filesystem::remove(kRings);
    std::string codes;
    const Json cut = TickWith(watch, [&](const Json& tick) {
        for (const Json& notice : tick.at("notices")) {
            codes += notice.at("code").get<std::string>() + ' ';
        }
        return !At(tick, "/systrace/problem").is_null() && !At(tick, "/rings/problem").is_null();
    });
    EXPECT_NE(At(cut, "/systrace/problem").dump().find("100 bytes"), std::string::npos);
    EXPECT_EQ(codes, "file-cut file-gone ");
    watch.Signal(SIGINT);
    watch.Rest();
    EXPECT_EQ(watch.Status(), 0);
}

TEST_F(WatchTest, LeavesTheFilesAsTheyAre) {
    {
        Device device;
        device.Write(50);
    }
    const std::string trace = ReadFile(kTrace);
    const std::string rings = ReadFile(kRings);
    const std::vector<std::string> files = Listing(".");
    Program watch({"watch", "--count", "3", "--interval", "10"});
    const std::string output = watch.Rest();
    EXPECT_EQ(watch.Status(), 0);
    EXPECT_EQ(CountOf(output, "component 5"), 30U) << output;
    EXPECT_EQ(output.find('\x1b'), std::string::npos);
    EXPECT_TRUE(ReadFile(kTrace) == trace);
    EXPECT_TRUE(ReadFile(kRings) == rings);
    EXPECT_EQ(Listing("."), files);
}

// Reading a process's memory at address 0 fails as a bad disk does.
TEST_F(WatchTest, SaysWhatItCannotRead) {
    std::filesystem::create_symlink("/proc/self/mem", kTrace);
    std::filesystem::create_symlink("/proc/self/mem", kRings);
    Program watch({"watch", "--json", "--count", "1"});
    const Json tick = NextTick(watch);
    EXPECT_EQ(At(tick, "/systrace/problem"), std::string(kTrace) + " cannot be read: Input/output error.");
    EXPECT_EQ(At(tick, "/rings/problem"), std::string(kRings) + " cannot be read: Input/output error.");

    Program follow({"log", "--follow", "/proc/self/mem"});
    EXPECT_NE(follow.ReadUpTo("error.\n").find("Input/output error"), std::string::npos);
#ifndef __SANITIZE_THREAD__ // it loses one in 200 signals that come while a message is written
    follow.Signal(SIGINT);
    follow.Rest();
    EXPECT_EQ(follow.Status(), 1);
#endif

    Program nowhere({"watch", "nowhere"});
    EXPECT_NE(nowhere.Rest().find("nowhere"), std::string::npos);
    EXPECT_EQ(nowhere.Status(), 2);
}

TEST_F(WatchTest, GivesTheTerminalBack) {
    {
        Device device;
        device.Write(50);
    }
    for (const bool key : {true, false}) {
        Program watch({"watch", "--interval", "3600000"}, 30);
        EXPECT_EQ(watch.ReadUpTo("laid out by").find("Ctrl-C ends"), std::string::npos);
        // The rest of the lines appears as soon as there is room, without another look.
        watch.Forget();
        watch.SetColumns(90);
        const std::string wide = watch.ReadUpTo("which is gone");
        EXPECT_NE(wide.find("Ctrl-C ends"), std::string::npos) << wide;
        key ? watch.Type('\x03') : watch.Signal(SIGTERM);
        const std::string rest = watch.Rest();
        EXPECT_EQ(watch.Status(), 0);
        EXPECT_TRUE(rest.ends_with("\x1b[0m\x1b[?7h\x1b[?25h\x1b[?1049l")) << rest;
    }
}

class TerminalTest : public Sandbox {};

TEST_F(TerminalTest, FollowedLinesHaveTheTimesThatTheirCountersTell) {
    Program follow({"log", "--follow", "new.log", "--not", "nothing"});
    follow.ReadUpTo("waiting for it\n");
    const std::time_t begun = std::time(nullptr) - 2;
    std::tm local{};
    ::localtime_r(&begun, &local);
    char date[64];
    std::snprintf(date, sizeof(date), "%04d%02d%02d%02d%02d%02d.54000", local.tm_year, local.tm_mon,
                  local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    WriteFile("new.log",
              "700000000 <0x00000001:000> <CAL> <Trace> Calibration freq=1000000, now=" + std::string(date) +
                  ", type=qpc\r\n" + "900000000 <0x00000001:000> <WARN> <Engine> page 1\r\n");
    // How many seconds a busy machine takes is open, the part of the second is not.
    const std::string seen = follow.ReadUpTo("page 1\n");
    EXPECT_TRUE(seen.find(".254000000 ") != std::string::npos || seen.find(".25399999") != std::string::npos)
        << seen;
    EXPECT_NE(seen.find(".054000000 + 700000000"), std::string::npos) << seen;
    // A calibration line in a message tells nothing of the lines after it.
    std::ofstream("new.log", std::ios::app)
        << "900000100 <0x00000001:000> <WARN> <Engine> the log began:\r\n"
           "123456789 <0x00000002:000> <CAL> <Trace> Calibration freq=1000000, now=01250101000000.33333, "
           "type=qpc\r\n910000000 <0x00000001:000> <WARN> <Engine> page 2\r\n";
    const std::string more = follow.ReadUpTo("page 2\n");
    EXPECT_TRUE(more.find(".264000000 ") != std::string::npos || more.find(".26399999") != std::string::npos)
        << more;
    follow.Signal(SIGINT);
    follow.Rest();
    EXPECT_EQ(follow.Status(), 0);
}

TEST_F(TerminalTest, OnATerminalThereAreColoursAndAPager) {
    WriteFile("a.log", "900000000 <0x00000001:000> <WARN> <Engine> page 1\r\n");
    ::setenv("PAGER", "sed s/^/paged:/", 1);
    Program terminal({"log", "a.log"}, 80);
    const std::string shown = terminal.Rest();
    EXPECT_EQ(terminal.Status(), 0);
    EXPECT_NE(shown.find("paged:\x1b[2m"), std::string::npos) << shown;
    EXPECT_NE(shown.find("\x1b[33m900000000"), std::string::npos) << shown;
    Program without({"log", "a.log", "--no-pager", "--color", "never"}, 80);
    const std::string plain = without.Rest();
    EXPECT_EQ(plain.find("paged:"), std::string::npos) << plain;
    EXPECT_EQ(plain.find('\x1b'), std::string::npos) << plain;
    Program pipe({"log", "a.log"});
    const std::string piped = pipe.Rest();
    EXPECT_EQ(piped.find("paged:"), std::string::npos) << piped;
    EXPECT_EQ(piped.find('\x1b'), std::string::npos) << piped;
    ::setenv("PAGER", "no-such-pager", 1);
    EXPECT_NE(Program({"log", "a.log"}, 80).Rest().find("page 1"), std::string::npos);
    ::unsetenv("PAGER");
}

TEST_F(WatchTest, KeysSteerTheTrace) {
    const Device device;
    const auto filterWord = [](std::size_t index) {
        std::uint32_t word = 0;
        std::memcpy(&word, ReadFile(kTrace).data() + 44 + index * 4, sizeof(word));
        return word;
    };
    // What a recording of nima-ctl that was killed has left.
    struct stat status {};
    ASSERT_EQ(::stat(kTrace, &status), 0);
    char note[400];
    std::snprintf(note, sizeof(note), "nima-ctl record 1\nsegment %016llx %016llx\n%s%s%s%s",
                  static_cast<unsigned long long>(status.st_dev),
                  static_cast<unsigned long long>(status.st_ino), "00000000 00000000 00000000 00000000\n",
                  "00000000 00000000 00000000 00000000\n", "02000000 00000000 00000000 00000000\n",
                  "00000000 00000000 00000000 00000000\n");
    WriteFile("nima-ctl.aaaaaa.record", note);
    const std::uint32_t open = 0x02000000;
    const int segment = ::open(kTrace, O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(::pwrite(segment, &open, sizeof(open), 44 + 8 * 4), static_cast<ssize_t>(sizeof(open)));
    ::close(segment);
    Program watch = Program::AsJob({"watch", "--control", "--interval", "50"});
    watch.ReadUpTo("level 2: component 6");
    EXPECT_EQ(filterWord(8), 0U);
    EXPECT_FALSE(Exists("nima-ctl.aaaaaa.record"));
    watch.ReadUpTo("component 0: level 0, level 1");
    watch.Type('5');
    watch.ReadUpTo("component 5: level 0, level 1");
    watch.Type('+');
    watch.ReadUpTo("component 5: level 2 is open");
    EXPECT_EQ(filterWord(8), 0x04000000U);
    watch.ReadUpTo("component 5: level 0, level 1, level 2");
    for (int i = 0; i < 3; ++i) {
        watch.Type('-');
    }
    watch.ReadUpTo("component 5: level 0 is closed");
    EXPECT_EQ(filterWord(8), 0U);
    EXPECT_EQ(filterWord(0), ~0x04000000U);
    watch.Type('d');
    watch.ReadUpTo("the trace is in SysTrace-");
    EXPECT_EQ(Listing(".").size(), 3U);

    watch.Forget();
    watch.Type('\x1a');
    EXPECT_TRUE(watch.ReadUpTo(">").ends_with("\x1b[?1049l<stopped, echoes>"));
    watch.ReadUpTo("\x1b[?1049h");
    watch.ReadUpTo("closed");
    watch.Type('q');
    EXPECT_TRUE(watch.Rest().ends_with("\x1b[?1049l"));
    EXPECT_EQ(watch.Status(), 0);

    Program blind({"watch", "--control"});
    EXPECT_NE(blind.Rest().find("needs a terminal"), std::string::npos);
    EXPECT_EQ(blind.Status(), 2);
}

TEST_F(ListenTest, CopiesEachFileThatIsNamed) {
    WriteFile("stacktrace42-1.txt", "0x1: (first+0x1)\n");
    Program listen({"listen", "--json", "--port", "0", "--collect", "kept/traces", "--count", "3"});
    const int port = Json::parse(listen.Line())["listening"]["port"];
    const std::string file = directory() + "/stacktrace42-1.txt";

    Send(port, Notification(file));
    Json heard = Json::parse(listen.Line());
    EXPECT_EQ(heard["file"], file);
    EXPECT_EQ(heard["process"], 42);
    EXPECT_EQ(heard["core_folder"], "/var/cores");
    EXPECT_EQ(heard["copy"], "kept/traces/stacktrace42-1.txt");

    // A later process with that number has a file of its own.
    WriteFile("stacktrace42-1.txt", "0x2: (second+0x1)\n");
    Send(port, Notification(file));
    heard = Json::parse(listen.Line());
    EXPECT_EQ(ReadFile("kept/traces/stacktrace42-1.txt"), "0x1: (first+0x1)\n");
    EXPECT_EQ(ReadFile(heard["copy"]), "0x2: (second+0x1)\n");

    std::filesystem::resize_file("stacktrace42-1.txt", 1 << 30);
    Send(port, Notification(file));
    heard = Json::parse(listen.Line());
    EXPECT_LE(std::filesystem::file_size(heard["copy"].get<std::string>()), 16U << 20);
    EXPECT_TRUE(heard["problem"].is_string());
    EXPECT_EQ(Listing("kept/traces").size(), 3U); // nothing is left of a name for the time of writing
    EXPECT_EQ(listen.Rest(), "");
    EXPECT_EQ(listen.Status(), 0);
}

TEST_F(ListenTest, TrustsNoDatagram) {
    Program listen({"listen", "--port", "0", "--collect", "kept"});
    const std::string line = listen.Line();
    const int port = std::atoi(line.substr(line.rfind(' ')).c_str());

    WriteFile("secret", "secret");
    std::filesystem::create_symlink(directory() + "/secret", "stacktrace1-1.txt");
    ASSERT_EQ(::mkfifo("stacktrace2-1.txt", 0600), 0);
    std::filesystem::create_directory("stacktrace3-1.txt");
    WriteFile("stacktrace4-1.txt", "0x1: (f+0x1)\n");
    for (const char* name : {"/stacktrace1-1.txt", "/stacktrace2-1.txt", "/stacktrace3-1.txt", "/secret",
                             "/stacktrace9-9.txt", "/stacktrace4-1.txt/", "/stacktrace4-1.txt/../secret"}) {
        Send(port, Notification(directory() + name));
    }
    Send(port, Notification("stacktrace4-1.txt"));
    Send(port, Notification(""));
    Send(port, Notification(directory() + "/stacktrace4-1.txt") + std::string(4000, 'x'));
    Send(port, Notification(directory() + "/stacktrace4-1.txt" + std::string(1, '\0')));
    Send(port, "");
    Send(port,
         "\x1b[2J\x9b"
         "31m crash-notification\r\nfile: \r\n");
    Send(port, Notification("/\x1b[31m/the last"));
    const std::string output = listen.ReadUpTo("the last");
    EXPECT_EQ(CountOf(output, "not copied"), 8U) << output;
    EXPECT_EQ(CountOf(output, "no notification"), 5U) << output;
    EXPECT_EQ(output.find_first_of("\x1b\x9b"), std::string::npos);
    EXPECT_EQ(Listing("kept"), std::vector<std::string>{});

    listen.Signal(SIGTERM);
    listen.Rest();
    EXPECT_EQ(listen.Status(), 0);
}

TEST_F(ListenTest, SaysWhyItCannot) {
    Program first({"listen", "--json", "--port", "0"});
    const int port = Json::parse(first.Line())["listening"]["port"];
    Program second({"listen", "--port", std::to_string(port)});
    EXPECT_NE(second.Rest().find("in use"), std::string::npos);
    EXPECT_EQ(second.Status(), 2);

    WriteFile("file", "");
    Program third({"listen", "--port", "0", "--collect", "file"});
    EXPECT_NE(third.Rest().find("file: "), std::string::npos);
    EXPECT_EQ(third.Status(), 2);
}

} // namespace Nima::Testing
