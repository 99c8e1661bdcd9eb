/// What a record costs its writer while nima-ctl and nima-post look at its process or steer it. Segments and
/// dumps go to the working directory.

#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <Diagnostics/RealTimeTraceApi.h>

namespace {

void RunOnce(const std::vector<std::string>& words) {
    std::vector<char*> pointers;
    for (const std::string& word : words) {
        pointers.push_back(const_cast<char*>(word.c_str()));
    }
    pointers.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
        dup2(nothing, STDOUT_FILENO);
        dup2(nothing, STDERR_FILENO);
        execv(pointers[0], pointers.data());
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) {
        _exit(1);
    }
}

/// A process that calls programs, one after the other, again and again.
class Companion {
  public:
    explicit Companion(const std::vector<std::vector<std::string>>& calls) {
        child_ = fork();
        if (child_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (;;) {
                for (const auto& call : calls) {
                    RunOnce(call);
                }
            }
        }
    }
    Companion(const Companion&) = delete;
    Companion& operator=(const Companion&) = delete;
    /// Returns whether every call went well until now.
    bool End() {
        int status = 0;
        const bool lives = waitpid(child_, &status, WNOHANG) == 0;
        if (lives) {
            kill(child_, SIGKILL);
            waitpid(child_, &status, 0);
        }
        child_ = -1;
        return lives;
    }
    ~Companion() {
        if (child_ > 0) {
            End();
        }
    }

  private:
    pid_t child_ = -1;
};

/// A record of three words beside a companion; none if there are no calls.
void Record(benchmark::State& state, const std::vector<std::vector<std::string>>& calls) {
    SysTraceConfigure();
    std::optional<Companion> companion;
    if (!calls.empty()) {
        companion.emplace(calls);
    }
    unsigned long number = 0;
    for ([[maybe_unused]] auto _ : state) {
        RTTrace_3(SYSTRACE_ID(5, 0, 77), number, number, number);
        ++number;
    }
    if (companion && !companion->End()) {
        state.SkipWithError("a call beside it failed");
    }
}

const std::vector<std::vector<std::string>> kNone;
const std::vector<std::vector<std::string>> kStatus{{NIMA_CTL, "status", "--for", "0.1"}};
const std::vector<std::vector<std::string>> kDump{{NIMA_CTL, "dump", "bench.bin"}};
const std::vector<std::vector<std::string>> kLevel{{NIMA_CTL, "level", "6", "2"},
                                                   {NIMA_CTL, "level", "6", "2", "--off"}};
const std::vector<std::vector<std::string>> kWatch{
    {NIMA_POST, "watch", "--json", "--interval", "100", "--count", "100"}};

BENCHMARK_CAPTURE(Record, alone, kNone);
BENCHMARK_CAPTURE(Record, beside_status, kStatus);
BENCHMARK_CAPTURE(Record, beside_level, kLevel);
BENCHMARK_CAPTURE(Record, beside_watch, kWatch);
BENCHMARK_CAPTURE(Record, beside_dump, kDump);

} // namespace

BENCHMARK_MAIN();
