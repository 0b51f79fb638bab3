#pragma once

#include <filesystem>

namespace qbdkr::test {

// Returns the path of the running executable.
std::filesystem::path ownExecutable();
// Puts the running executable at another path too.
void putOwnExecutable(const std::filesystem::path& path);

}  // namespace qbdkr::test
