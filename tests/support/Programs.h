#pragma once

#include <filesystem>
#include <vector>

// The programs that the build has made for the tests with real processes.
namespace qbdkr::test {

std::filesystem::path hostProbe();
std::filesystem::path helperProbe();
// What a host bundle needs among its frameworks.
std::vector<std::filesystem::path> hostLibraries();
// The peer of Peer.h.
std::filesystem::path libdbusClient();
// The bundle of the sample host, its helper agent inside.
std::filesystem::path sampleHost();

}  // namespace qbdkr::test
