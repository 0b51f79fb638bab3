#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>

#include <ClientComm/TextValue.h>

#include "ClientComm/HostConfiguration.h"
#include "ProductClient/SystemCalls.h"

namespace qbdkr {

struct FileError;

// Installs the helper agent from the host's resources, unless the installed one is at least as new.
// Any thread.
class HelperInstaller {
 public:
  // Calls askToExit before it replaces a running helper agent, and waits for the exit, 5 s at most.
  HelperInstaller(HostConfiguration configuration, SystemCalls system,
                  std::function<void()> askToExit);

  // Does the work of QBHPHelperCommunicate::extractHelper(), and blocks as that says.
  void install();

 private:
  void copy(const std::string& resource, const std::string& installed);
  void replaceIfOlder(const std::string& resource, const std::string& installed);
  void endRunning(const std::string& installed);
  void logFailedCopy(const FileError& error);

  HostConfiguration configuration_;
  SystemCalls system_;
  std::function<void()> askToExit_;
  // The hash of the failure that was logged last; 0 after a success. Each launch repeats a lasting
  // failure, which is logged once.
  std::atomic<std::size_t> loggedFailure_{0};
};

// Returns the CFBundleVersion of a bundle; absent if the bundle or the key is missing. Blocks for
// the file. Any thread.
[[nodiscard]] String versionOfBundle(const std::string& path);

}  // namespace qbdkr
