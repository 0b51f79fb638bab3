#pragma once

namespace qbdkr {

// Calls what may throw where nothing may unwind: in a callback of the system's, or of a library in
// C. What fails there is left undone.
template <class Body>
void dropExceptions(const Body& body) noexcept {
  try {
    body();
  } catch (...) {
  }
}

}  // namespace qbdkr
