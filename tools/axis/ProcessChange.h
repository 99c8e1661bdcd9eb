#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace NimaPost {

/// Whether two threads lie so close together in one address space that a process may have both.
bool MayBeOfOneProcess(std::uint32_t a, std::uint32_t b);

/// Who wrote a record, and its counter.
struct Written {
    std::uint32_t thread = 0;
    std::int64_t counter = 0;
};

/// The places in front of which one process ended and another began, given records in the order of time: no
/// thread writes on both sides, and that is no chance. Threads that start or end change nothing, nor do
/// threads that wait for the processor: at least two on either side must have written so steadily that they
/// would have been seen on the other one, which lasts for a second or more. Where all threads near the place
/// lie too far from those beyond it, one of each is enough.
std::vector<std::size_t> ProcessChanges(std::span<const Written> records);

} // namespace NimaPost
