#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>

#include <ClientComm/TextValue.h>

#include "ClientComm/HostConfiguration.h"
#include "ProductClient/HelperStates.h"
#include "ProductClient/SystemCalls.h"

namespace qbdkr {

struct FileError;

// Installs the helper agent from the host's resources, unless the installed one is at least as new.
// Any thread.
class HelperInstaller {
 public:
  // Tells its progress, and HelperReplaced. Calls endRunning before it replaces an older helper
  // agent, or finds that it cannot: that asks one that runs to exit, and waits for its end.
  HelperInstaller(HostConfiguration configuration, SystemCalls system, HelperStates& states,
                  std::function<void()> endRunning);

  // Does the work of QBHPHelperCommunicate::extractHelper(), and blocks as that says.
  void install();

  // Replaces the installed copy, which could not be opened, by the one among the resources, once
  // for each version of that. Keeps a newer copy, and one from which another host has opened the
  // helper agent. True if another attempt to open it may succeed. Blocks likewise.
  bool repair();

 private:
  void copy(const std::string& resource, const std::string& installed);
  void replaceIfOlder(const std::string& resource, const std::string& installed);
  void recordMissingResource() const;
  void logFailedCopy(const FileError& error);
  static void logFailedRemoval(const std::string& installed, const FileError& error);

  HostConfiguration configuration_;
  SystemCalls system_;
  HelperStates& states_;
  std::function<void()> endRunning_;
  // The hash of the failure that was logged last; 0 after a success. Each launch repeats a lasting
  // failure, which is logged once.
  std::atomic<std::size_t> loggedFailure_{0};
  // The hash of the version that repaired the installed copy last; 0 before.
  std::atomic<std::size_t> repairedBy_{0};
};

// Returns the CFBundleVersion of a bundle; absent if the bundle or the key is missing. Blocks for
// the file. Any thread.
[[nodiscard]] String versionOfBundle(const std::string& path);

}  // namespace qbdkr
