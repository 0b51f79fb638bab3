#pragma once

#include <malloc.h>

#include <cstddef>

#include "support/Sanitizers.h"

// The compiler may come without the header of its sanitizers.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();  // NOLINT(*-reserved-identifier)

namespace qbdkr::test {

// Returns the bytes on the heap that are in use. Freed memory does not count, even if the allocator
// keeps it.
inline std::size_t liveMemory() {
  if constexpr (hasSanitizer) {
    return __sanitizer_get_current_allocated_bytes();
  } else {
    return mallinfo2().uordblks;
  }
}

}  // namespace qbdkr::test
