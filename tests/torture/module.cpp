/// What the torture's host loads and unloads all the time.

#include <vector>

extern "C" __attribute__((visibility("default"))) int ModuleWork(int size) {
    const std::vector<int> numbers(static_cast<unsigned>(size), 1);
    return static_cast<int>(numbers.size());
}
