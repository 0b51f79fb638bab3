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
#include "support/TestBundle.h"
#include "support/TranscriptFile.h"

namespace qbdkr::test {

// Everything that one test needs: a bus, a home, identifiers that no other test uses, bundles, and
// the transcript of what the helper agents received. At its end no process of the test is left.
class Scene {
 public:
  explicit Scene(const std::string& busPolicy = "", const std::string& identifierSuffix = "");
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;
  ~Scene();

  [[nodiscard]] const std::filesystem::path& directory() const { return directory_.path(); }
  [[nodiscard]] const std::string& helperID() const { return helperID_; }
  [[nodiscard]] const std::string& hostID() const { return hostID_; }
  // An identifier of this test's own.
  [[nodiscard]] std::string identifier(const std::string& name) const;

  PrivateBus& bus() { return bus_; }
  [[nodiscard]] const Home& home() const { return home_; }
  TranscriptFile& transcript() { return transcript_; }
  // Settings of the processes that are started from here on.
  Environment& environment() { return environment_; }

  // The helper agent's bundle, DIRECTORY/NAME.app, outside any host.
  TestBundle makeHelper(const std::string& version, const std::filesystem::path& directory,
                        const std::string& name = "ProbeHelper");
  // A host whose resources hold a helper agent of that version, with these keys over the usual
  // ones.
  TestBundle makeHost(const std::string& name, const std::string& helperVersion,
                      const InfoKeys& keys = {});
  // The same with no helper agent among the resources.
  TestBundle makeHostWithoutHelper(const std::string& name, const InfoKeys& keys = {});

  // The product with which the hosts' first start was recorded, and the one that collects their
  // usage data, of hosts that have run before. Neither is the product of any host.
  static constexpr const char* firstProduct = "2002";
  static constexpr const char* dataProduct = "3003";
  // Records earlier starts for the usual host identifier. To be called before the first start.
  void recordEarlierStarts() const;

  [[nodiscard]] SpawnOptions options() const;
  std::unique_ptr<HostProcess> start(const TestBundle& host) { return start(host, options()); }
  std::unique_ptr<HostProcess> start(const TestBundle& host, const SpawnOptions& options);
  // Starts a host, creates its facade, and waits until the helper agent has its start request.
  std::unique_ptr<HostProcess> startAndShare(const TestBundle& host);

  [[nodiscard]] std::filesystem::path installDirectory() const;
  [[nodiscard]] std::filesystem::path installedHelper() const;
  // Work in progress that a deployment has left there.
  [[nodiscard]] std::vector<std::string> stagingLeftovers() const;

  // The processes whose executable lies in a directory.
  [[nodiscard]] static std::vector<pid_t> processesIn(const std::filesystem::path& directory);
  // The one process of the installed helper agent; throws when there is none or more than one.
  [[nodiscard]] pid_t helperProcess() const;
  // Kills it, and returns when the bus knows, whom the host asks.
  void killHelper(HostProcess& host);

  // Ensures that all that the host has posted to the helper agent so far stands in the transcript.
  void fence(HostProcess& host);

  // The user defaults of a domain, read by another implementation: JSON with sorted keys.
  [[nodiscard]] std::string preferences(const std::string& domain) const;

 private:
  TemporaryDirectory directory_;
  PrivateBus bus_;
  Home home_;
  TranscriptFile transcript_;
  std::string helperID_;
  std::string hostID_;
  Environment environment_;
  unsigned fences_ = 0;
};

}  // namespace qbdkr::test
