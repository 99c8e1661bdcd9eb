#include "tests/support/Allocations.h"

#include <cstdlib>
#include <new>

namespace Nima::Testing {

std::atomic<std::size_t> g_Allocations{0};
std::atomic<int> g_AllocationsLeft{-1};

} // namespace Nima::Testing

// Not inlined, since the compiler would otherwise report mismatched pairs.
__attribute__((noinline)) void* operator new(std::size_t size) {
    ++Nima::Testing::g_Allocations;
    if (Nima::Testing::g_AllocationsLeft >= 0 && Nima::Testing::g_AllocationsLeft-- == 0) {
        throw std::bad_alloc();
    }
    if (void* block = std::malloc(size != 0 ? size : 1)) {
        return block;
    }
    throw std::bad_alloc();
}
__attribute__((noinline)) void operator delete(void* block) noexcept {
    std::free(block);
}
__attribute__((noinline)) void operator delete(void* block, std::size_t /*size*/) noexcept {
    std::free(block);
}
