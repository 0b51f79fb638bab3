#pragma once

namespace qbdkr {

// Runs code that may throw where no exception may unwind: in a callback of the system or of a C
// library. Drops the exception; the work that failed stays undone.
template <class Body>
void dropExceptions(const Body& body) noexcept {
  try {
    body();
  } catch (...) {
  }
}

}  // namespace qbdkr
