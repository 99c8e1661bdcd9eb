// A host that dies in the way that its argument names. The lines at which it does are marked for the test.

#include "tests/symbols/library.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <Diagnostics/CrashApi.h>

// A build that differs only in this has its functions elsewhere.
#ifdef OTHER_BUILD
[[gnu::noinline]] extern int Calibrate(const std::string& text) {
    int sum = 0;
    for (const char each : text + text) {
        sum = sum * 31 + each;
    }
    return sum;
}
#endif

namespace Paper {

using Trays = std::map<std::string, std::vector<std::pair<std::string, std::string>>>;

[[gnu::always_inline]] inline void Jam(std::size_t place) {
    *reinterpret_cast<volatile int*>(place) = 1; // jam
}

[[gnu::always_inline]] inline void Pull(std::size_t place) {
    Jam(place); // pull
}

/// Its line in a stack trace is cut.
[[gnu::noinline]] void FeedFrom(const Trays& trays, const Trays& others) {
    Pull(0x1000 + trays.size() + others.size()); // feed
    std::puts("fed");
}

} // namespace Paper

namespace {

[[gnu::noinline]] void AtTheFirstInstruction() {
    *reinterpret_cast<volatile int*>(std::size_t{0x1000}) = 1; // first
}

[[gnu::noinline]] int Deep(int depth) { // NOLINT: what is wanted
    if (depth == 0) {
        Paper::FeedFrom({}, {}); // bottom
        return 0;
    }
    return Deep(depth - 1) + depth; // deep
}

[[gnu::noinline]] void Throw() {
    throw std::runtime_error("nobody catches this"); // throw
}

[[gnu::noinline]] void Report() {
    HandleFatalCrash("the fuser is on fire", "", 7, "fuser.cpp", 1); // report
}

/// Where the program and its library are, for a manifest.
void WriteModules() {
    std::ifstream maps("/proc/self/maps");
    std::ofstream("modules.txt") << maps.rdbuf();
}

} // namespace

int main(int argc, char** argv) {
    WriteModules();
    InstallCrashHandler(0);
    const std::string way = argc > 1 ? argv[1] : "";
    if (way == "first") {
        AtTheFirstInstruction(); // main first
    } else if (way == "feed") {
        Paper::FeedFrom({}, {}); // main feed
    } else if (way == "deep") {
        std::printf("%d\n", Deep(40)); // main deep
    } else if (way == "throw") {
        Throw(); // main throw
    } else if (way == "report") {
        Report(); // main report
    } else if (way == "library") {
        std::printf("%d\n", ScanPage(argc)); // main library
    }
#ifdef OTHER_BUILD
    std::printf("%d\n", Calibrate(way));
#endif
    return 0;
}
