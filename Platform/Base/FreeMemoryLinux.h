#pragma once

#include <cstddef>

namespace qbdkr {

// The least amount of freed memory after which releaseFreeMemory() is worth its time.
inline constexpr std::size_t memoryPeak = std::size_t{256} << 10U;  // bytes

// Gives the allocator's free memory back to the system; otherwise the process keeps it until it
// ends. Slow: call it only after a peak. Any thread.
void releaseFreeMemory();

}  // namespace qbdkr
