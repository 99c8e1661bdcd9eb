#include "competitors/harness.h"

#include <algorithm>
#include <barrier>
#include <cstdio>
#include <exception>
#include <iostream>
#include <sstream>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <time.h>
#include <unistd.h>

namespace bench {

namespace {

double Now() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

/// The number of allocations so far, if the counting allocator is preloaded.
long Allocations() {
    using Counter = long (*)();
    static const auto counter = reinterpret_cast<Counter>(::dlsym(RTLD_DEFAULT, "CountedAllocations"));
    return counter != nullptr ? counter() : 0;
}

struct Span {
    double begin = 0;
    double end = 0;
    long allocations = 0;
};

/// Threads that compete are put on different processors: otherwise they may share one for a whole repetition,
/// and then they do not compete.
void PlaceThread(int thread, int threads) {
    const long processors = ::sysconf(_SC_NPROCESSORS_ONLN);
    if (threads > 1 && processors > 1) {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(static_cast<std::size_t>(thread % processors), &set);
        ::pthread_setaffinity_np(::pthread_self(), sizeof(set), &set);
    }
}

/// Even a single thread runs beside the main thread: the C library skips its locks in a process with one
/// thread.
std::string Run(const Job& job, int threads, int calls, const std::string& path) {
    if (job.begin) {
        job.begin(path, threads);
    }
    std::vector<Span> spans(static_cast<std::size_t>(threads));
    std::barrier start(threads);
    {
        std::vector<std::jthread> workers;
        workers.reserve(spans.size());
        for (int i = 0; i < threads; ++i) {
            workers.emplace_back([&, i] {
                Span& span = spans[static_cast<std::size_t>(i)];
                PlaceThread(i, threads);
                job.work(i, 1); // whatever a thread's first call sets up
                start.arrive_and_wait();
                const long before = Allocations();
                span.begin = Now();
                job.work(i, calls);
                span.end = Now();
                span.allocations = Allocations() - before;
            });
        }
    }
    if (job.end) {
        job.end();
    }
    Span whole = spans.front();
    for (const Span& span : spans) {
        whole.begin = std::min(whole.begin, span.begin);
        whole.end = std::max(whole.end, span.end);
        whole.allocations = std::max(whole.allocations, span.allocations);
    }
    std::ostringstream answer;
    answer << (whole.end - whole.begin) / calls << ' ' << static_cast<double>(whole.allocations) / calls;
    return answer.str();
}

std::string Answer(const std::map<std::string, Job>& jobs, const std::string& request) {
    std::istringstream words(request);
    std::string name;
    std::string path;
    int threads = 0;
    int calls = 0;
    words >> name >> threads >> calls >> path;
    if (name == "jobs") {
        std::string names;
        for (const auto& [key, job] : jobs) {
            names += (names.empty() ? "" : " ") + key;
        }
        return names;
    }
    const auto job = jobs.find(name);
    if (job == jobs.end() || threads < 1 || calls < 1) {
        return "error: no such job: " + request;
    }
    try {
        return Run(job->second, threads, calls, path);
    } catch (const std::exception& problem) {
        return std::string("error: ") + problem.what();
    }
}

} // namespace

int Serve(const std::map<std::string, Job>& jobs) {
    // Answers use a descriptor of their own, since libraries print to standard output.
    std::FILE* const answers = ::fdopen(::dup(STDOUT_FILENO), "w");
    if (answers == nullptr || ::dup2(STDERR_FILENO, STDOUT_FILENO) == -1) {
        return 1;
    }
    std::string request;
    while (std::getline(std::cin, request)) {
        std::fprintf(answers, "%s\n", Answer(jobs, request).c_str());
        std::fflush(answers);
    }
    std::fclose(answers);
    return 0;
}

} // namespace bench
