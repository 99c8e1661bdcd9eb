#pragma once

#include <atomic>
#include <cstddef>

namespace Nima::Testing {

/// How often the program has allocated, for tests linked with nima_test_allocations.
extern std::atomic<std::size_t> g_Allocations;
/// How many allocations succeed before one fails; negative for all.
extern std::atomic<int> g_AllocationsLeft;

} // namespace Nima::Testing
