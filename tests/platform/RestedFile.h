#pragma once

#include <filesystem>

namespace qbdkr::test {

// Returns a file that has not changed for a while. Only a source file of the tests is sure not to
// have changed, and the platform caches no other file. First.plist has the text 4711 under PID.
inline std::filesystem::path restedFile(const char* name) {
  return std::filesystem::path(QBDKR_PLATFORM_TESTS) / "rested" / name;
}

}  // namespace qbdkr::test
