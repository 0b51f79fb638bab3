#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>

#include <ClientComm/TextValue.h>

#include "ClientComm/HostConfiguration.h"
#include "ProductClient/HostSystem.h"

namespace qbdkr {

struct FileError;

// Brings the helper agent from the host's resources to its place, unless the installed one is as
// new. Any thread.
class HelperInstaller {
 public:
  // Calls askToExit before it replaces a helper agent that runs, and does not wait for its exit.
  HelperInstaller(HostConfiguration configuration, HostSystem system,
                  std::function<void()> askToExit);

  // As QBHPHelperCommunicate::extractHelper() says.
  void install();

 private:
  // False if the installed copy stays.
  bool makeWayFor(const std::string& resource, const std::string& installed);
  void logFailedCopy(const FileError& error);

  HostConfiguration configuration_;
  HostSystem system_;
  std::function<void()> askToExit_;
  // The failure that was logged last, as a hash; 0 after a success. Each launch repeats one that
  // lasts, and it is logged once.
  std::atomic<std::size_t> loggedFailure_{0};
};

// The CFBundleVersion of a bundle; absent without a bundle or without that key. Blocks for the
// file.
[[nodiscard]] String versionOfBundle(const std::string& path);

}  // namespace qbdkr
