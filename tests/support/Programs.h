#pragma once

#include <filesystem>
#include <vector>

// Programs that the build makes for the tests with real processes.
namespace qbdkr::test {

std::filesystem::path hostProbe();
std::filesystem::path helperProbe();
// Returns the libraries that a host bundle needs among its frameworks.
std::vector<std::filesystem::path> hostLibraries();
// Returns the program of Peer.h.
std::filesystem::path libdbusClient();
// Returns the bundle of the sample host, with its helper agent inside.
std::filesystem::path sampleHost();

}  // namespace qbdkr::test
