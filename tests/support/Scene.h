#pragma once

#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/Environment.h"
#include "support/Home.h"
#include "support/HostProcess.h"
#include "support/PrivateBus.h"
#include "support/Programs.h"
#include "support/TestBundle.h"
#include "support/TranscriptFile.h"

namespace qbdkr::test {

// Sets up one test: a bus, a home, identifiers that no other test uses, bundles, and a transcript
// of the events that the helper agents received. Its destructor kills every process of the test.
class Scene {
 public:
  explicit Scene(const BusPolicy& busPolicy = {}, const std::string& identifierSuffix = "");
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;
  ~Scene();

  [[nodiscard]] const std::filesystem::path& directory() const { return directory_.path(); }
  [[nodiscard]] const std::string& helperID() const { return helperID_; }
  [[nodiscard]] const std::string& hostID() const { return hostID_; }
  // Returns an identifier that no other test uses.
  [[nodiscard]] std::string identifier(const std::string& name) const;

  PrivateBus& bus() { return bus_; }
  [[nodiscard]] const Home& home() const { return home_; }
  TranscriptFile& transcript() { return transcript_; }
  // Returns the environment of the processes that are started from here on.
  Environment& environment() { return environment_; }

  // Makes the hosts from here on of another probe.
  void useHostProbe(const HostProbe& probe);

  // Makes a helper agent's bundle, DIRECTORY/NAME.app, outside any host.
  TestBundle makeHelper(const std::string& version, const std::filesystem::path& directory,
                        const std::string& name = "ProbeHelper");
  // Makes a host with a helper agent of that version in its resources. KEYS override the usual
  // ones.
  TestBundle makeHost(const std::string& name, const std::string& helperVersion,
                      const InfoKeys& keys = {});
  // Makes a host without a helper agent in its resources.
  TestBundle makeHostWithoutHelper(const std::string& name, const InfoKeys& keys = {});

  // The product with which the hosts' first start was recorded, and the one that collects their
  // usage data, of hosts that have run before. Neither is the product of any host.
  static constexpr const char* firstProduct = "2002";
  static constexpr const char* dataProduct = "3003";
  // Records earlier starts for the usual host identifier. Call it before the first start.
  void recordEarlierStarts() const;

  [[nodiscard]] SpawnOptions options() const;
  std::unique_ptr<HostProcess> start(const TestBundle& host) { return start(host, options()); }
  std::unique_ptr<HostProcess> start(const TestBundle& host, const SpawnOptions& options);
  // Starts a host, creates its facade, and waits until the helper agent has its start request.
  std::unique_ptr<HostProcess> startAndShare(const TestBundle& host);

  [[nodiscard]] std::filesystem::path installDirectory() const;
  [[nodiscard]] std::filesystem::path installedHelper() const;
  // Returns the names of the unfinished work that a deployment left there.
  [[nodiscard]] std::vector<std::string> stagingLeftovers() const;

  // Returns the processes whose executable lies in a directory.
  [[nodiscard]] static std::vector<pid_t> processesIn(const std::filesystem::path& directory);
  // Returns the one process of the installed helper agent. Throws for any other number of them.
  [[nodiscard]] pid_t helperProcess() const;
  // Kills that process, and returns once the bus knows: the host asks the bus.
  void killHelper(HostProcess& host);

  // Waits until the transcript has all that the host posted to the helper agent so far.
  void fence(HostProcess& host);

  // Reads the user defaults of a domain with another implementation: JSON with sorted keys.
  [[nodiscard]] std::string preferences(const std::string& domain) const;

 private:
  TemporaryDirectory directory_;
  PrivateBus bus_;
  Home home_;
  TranscriptFile transcript_;
  std::string helperID_;
  std::string hostID_;
  std::filesystem::path hostProbe_;
  Environment environment_;
  unsigned fences_ = 0;
};

}  // namespace qbdkr::test
