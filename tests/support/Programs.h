#pragma once

#include <filesystem>
#include <map>
#include <ostream>
#include <string>
#include <vector>

// Programs that the build makes for the tests with real processes.
namespace qbdkr::test {

std::filesystem::path hostProbe();

// A host probe with a kind of main loop of its own (HostLoop.h).
struct HostProbe {
  std::string name;
  std::filesystem::path program;
  std::map<std::string, std::string> environment = {};

  friend void PrintTo(const HostProbe& probe, std::ostream* stream) { *stream << probe.name; }
};
std::vector<HostProbe> hostProbes();

std::filesystem::path helperProbe();
// Returns the libraries that a host bundle needs among its frameworks.
std::vector<std::filesystem::path> hostLibraries();
// Returns the program of Peer.h.
std::filesystem::path libdbusClient();
// Returns the bundle of the sample host, with its helper agent inside.
std::filesystem::path sampleHost();

}  // namespace qbdkr::test
