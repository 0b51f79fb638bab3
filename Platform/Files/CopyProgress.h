#pragma once

#include <cstdint>
#include <functional>

namespace qbdkr {

// Is called during a copy, on its thread, with the number of bytes that were copied since the last
// call: often in a large file, unless it shares its data with the copy, and once at least for each
// file that has contents. Holes count. An empty function is not called.
using CopyProgress = std::function<void(std::uint64_t bytes)>;

}  // namespace qbdkr
