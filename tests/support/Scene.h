#pragma once

#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/Environment.h"
#include "support/PrivateBus.h"
#include "support/TestBundle.h"
#include "support/TranscriptFile.h"

namespace qbdkr::test {

// A home directory of its own and an environment that leads everything there.
class Home {
 public:
  explicit Home(std::filesystem::path directory);

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  [[nodiscard]] std::filesystem::path preferencesFile(const std::string& domain) const;
  [[nodiscard]] Environment environment() const;

 private:
  std::filesystem::path path_;
  std::filesystem::path runtime_;
};

// A running host probe.
class Host {
 public:
  Host(const TestBundle& bundle, const SpawnOptions& options);

  // Runs a command to its end and gives its result; throws at the deadline.
  std::string call(const std::string& command, std::chrono::milliseconds time = patience);

  // The same in two halves.
  std::string begin(const std::string& command);
  std::string finish(const std::string& tag, std::chrono::milliseconds time = patience);
  // Whether the result is there already.
  [[nodiscard]] bool hasFinished(const std::string& tag) const;

  // Waits for the next report to the delegate that holds a text.
  std::string waitForReport(const std::string& part);
  [[nodiscard]] std::size_t reportsWith(const std::string& part) const;

  // Ends as an application does.
  void quit();

  ChildProcess& process() { return process_; }
  [[nodiscard]] pid_t processID() const { return process_.processID(); }
  // Of its bundle.
  [[nodiscard]] const std::string& identifier() const { return identifier_; }

 private:
  std::string identifier_;
  ChildProcess process_;
  unsigned lastTag_ = 0;
};

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
  std::unique_ptr<Host> start(const TestBundle& host) { return start(host, options()); }
  std::unique_ptr<Host> start(const TestBundle& host, const SpawnOptions& options);
  // Starts a host, creates its facade, and waits until the helper agent has its start request.
  std::unique_ptr<Host> startAndShare(const TestBundle& host);

  [[nodiscard]] std::filesystem::path installDirectory() const;
  [[nodiscard]] std::filesystem::path installedHelper() const;
  // Work in progress that a deployment has left there.
  [[nodiscard]] std::vector<std::string> stagingLeftovers() const;

  // The processes whose executable lies in a directory.
  [[nodiscard]] static std::vector<pid_t> processesIn(const std::filesystem::path& directory);
  // The one process of the installed helper agent; throws when there is none or more than one.
  [[nodiscard]] pid_t helperProcess() const;
  // Kills it, and returns when the bus knows, whom the host asks.
  void killHelper(Host& host);

  // Ensures that all that the host has posted to the helper agent so far stands in the transcript.
  void fence(Host& host);

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

// Where the build has put the programs.
std::filesystem::path hostProbe();
std::filesystem::path helperProbe();
std::vector<std::filesystem::path> hostLibraries();

}  // namespace qbdkr::test
