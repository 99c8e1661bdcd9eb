#pragma once

/// What every competitor of the comparison is built on: a program that does jobs at the word of
/// `bench/compare.py`, so that one repetition of each can be asked for in turn. Benchmark frameworks run all
/// repetitions of one competitor before the next, and a machine that slows down meanwhile then decides.

#include <functional>
#include <map>
#include <string>

namespace bench {

/// The one line that all text logs write, and how often the name of its writer occurs.
inline constexpr const char* kName = "Bench";
inline constexpr const char* kWhat = "job";

struct Job {
    /// Called before the clock starts, with a path to write under and the number of threads.
    std::function<void(const std::string& path, int threads)> begin;
    /// The calls of one thread; the loop belongs in here. Timed.
    std::function<void(int thread, int calls)> work;
    /// Called after the clock has stopped. Whatever was written is in its files afterwards.
    std::function<void()> end;
};

/// Serves requests until the end of the input: "JOB THREADS CALLS PATH" is answered with the nanoseconds and
/// the allocations per call and thread, "jobs" with the names. Returns the program's exit status.
int Serve(const std::map<std::string, Job>& jobs);

/// Keeps the compiler from leaving out what nobody looks at.
template <class T>
inline void Keep(const T& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

} // namespace bench
