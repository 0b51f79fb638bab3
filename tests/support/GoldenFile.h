#pragma once

#include <filesystem>
#include <string>

namespace qbdkr::test {

// Fails the test, with the differences line by line, unless a text equals the contents of a file.
// Writes the file instead if QBDKR_REWRITE_GOLDEN is set in the environment.
void expectGolden(const std::filesystem::path& file, const std::string& text);

}  // namespace qbdkr::test
