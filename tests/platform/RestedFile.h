#pragma once

#include <filesystem>

namespace qbdkr::test {

// Files that have not changed for a while, as only the sources of the tests are sure to have done:
// what is read from a file is remembered only then. First.plist holds the text 4711 under PID.
inline std::filesystem::path restedFile(const char* name) {
  return std::filesystem::path(QBDKR_PLATFORM_TESTS) / "rested" / name;
}

}  // namespace qbdkr::test
