#pragma once

/// The base of every competitor in the comparison: a program that runs jobs when `bench/compare.py` asks, so
/// that the script can ask all of them in turn for one repetition each. Benchmark frameworks run all
/// repetitions of one competitor before the next, and then a machine that slows down meanwhile decides the
/// result.

#include <functional>
#include <map>
#include <string>

namespace bench {

/// The one line that all text logs write, and how often its writer's name occurs.
inline constexpr const char* kName = "Bench";
inline constexpr const char* kWhat = "job";

struct Job {
    /// Called before the clock starts, with a path to write under and the number of threads.
    std::function<void(const std::string& path, int threads)> begin;
    /// The timed calls of one thread, including the loop.
    std::function<void(int thread, int calls)> work;
    /// Called after the clock has stopped. Afterwards everything written must be in its files.
    std::function<void()> end;
};

/// Serves requests until the end of the input. "JOB THREADS CALLS PATH" is answered with the nanoseconds and
/// the allocations per call and thread, "jobs" with the names. Returns the program's exit status.
int Serve(const std::map<std::string, Job>& jobs);

/// Keeps the compiler from removing a value that nobody uses.
template <class T>
inline void Keep(const T& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

} // namespace bench
