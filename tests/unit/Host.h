#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <ClientComm/Bundle.h>
#include <ClientComm/PropertyList.h>

#include "support/ChildProcess.h"
#include "support/Environment.h"

namespace qbdkr::test {

// The bundle and the home directory of the process that runs a body below.
struct Host {
  std::filesystem::path bundle;
  std::filesystem::path home;

  [[nodiscard]] std::filesystem::path resources() const { return bundle / "Contents/Resources"; }
  // The settings of a domain, and a way to write them as another process would.
  [[nodiscard]] std::filesystem::path defaultsFile(const std::string& domain) const;
  void writeDefaults(const std::string& domain, const PropertyList::Dictionary& values) const;
  [[nodiscard]] PropertyList::Dictionary readDefaults(const std::string& domain) const;
};

inline constexpr const char* hostIdentifier = "com.Example.Host";
inline constexpr const char* helperIdentifier = "com.Example.Helper";

// Returns the information dictionary that the hosts of the tests share: identifier, PID 4711,
// version 3.1, and the helper agent's identifier. Without a place for a helper agent nothing is
// installed.
PropertyList::Dictionary hostInformation();
// The same with a helper agent "Helper", to be installed into ~/Library/Example.
PropertyList::Dictionary informationWithHelper();

// Runs a body in a process of its own, from a bundle of its own with this information dictionary
// and with an empty home directory; its failures are those of the test that calls. The test as a
// whole runs in both processes, the body only in the other one. The bundle has the strings files
// that are given, by the language of their folder.
void inHost(const PropertyList::Dictionary& info, const std::function<void(const Host&)>& body,
            const std::map<std::string, std::string>& infoPlistStrings = {});

// The same in a host that has run before, as another product, and collects usage data as a third.
// No two of these identifiers are equal, so that a request that takes the wrong one is noticed.
void inUsedHost(const PropertyList::Dictionary& info, const std::function<void(const Host&)>& body,
                const std::map<std::string, std::string>& infoPlistStrings = {});
std::function<void(const Host&)> afterEarlierStarts(const std::function<void(const Host&)>& body);
inline constexpr const char* firstProduct = "2002";
inline constexpr const char* dataProduct = "3003";

// A bundle with this information dictionary and nothing else; its files are gone.
Bundle bundleWith(const PropertyList::Dictionary& info);

// Writes the bundle and the home directory of a host below a directory.
Host writeHost(const std::filesystem::path& root, const PropertyList::Dictionary& info,
               const std::map<std::string, std::string>& infoPlistStrings);
// Makes this process use a home directory, no bus and no language.
void useHome(const std::filesystem::path& home);

// To be called first by main(): gives the process a home directory of its own, if it does not run a
// body already.
void enterPrivateHome();

// Writes a bundle with this information dictionary and nothing else.
void writeBundle(const std::filesystem::path& bundle, const PropertyList::Dictionary& info);

// An application: a process from a bundle that is made for it, running until it is destroyed.
class RunningApplication {
 public:
  static constexpr const char* argument = "--wait-for-end-of-input";

  RunningApplication(const std::filesystem::path& bundle, const PropertyList::Dictionary& info);
  [[nodiscard]] pid_t processID() const { return process_.processID(); }
  void end() { process_.finish(); }

 private:
  ChildProcess process_;
};

// A process outside any bundle, under a command name.
class RunningDaemon {
 public:
  explicit RunningDaemon(const std::string& name);
  [[nodiscard]] pid_t processID() const { return process_.processID(); }

 private:
  TemporaryDirectory directory_;
  ChildProcess process_;
};

}  // namespace qbdkr::test
