#pragma once

#include <cstddef>

namespace qbdkr {

// A use of memory that is worth giving back what the allocator kept of it.
inline constexpr std::size_t memoryPeak = std::size_t{256} << 10U;  // bytes

// Gives the allocator's free memory back to the system, which it would keep for the life of the
// process. Takes a while: for use after a peak. Any thread.
void releaseFreeMemory();

}  // namespace qbdkr
