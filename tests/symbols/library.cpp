#include "tests/symbols/library.h"

#include <cstddef>
#include <cstdio>

namespace {

/// Not exported: a stripped library gives it the name of a neighbour, or none.
[[gnu::noinline]] int LightLamp(int lines) {
    *reinterpret_cast<volatile int*>(std::size_t{0x1000}) = lines; // lamp
    std::puts("lit");
    return lines;
}

} // namespace

int ScanPage(int lines) {
    const int lit = LightLamp(lines + 1); // scan
    std::puts("scanned");
    return lit + 1;
}
