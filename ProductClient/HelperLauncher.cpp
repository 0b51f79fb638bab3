#include "ProductClient/HelperLauncher.h"

#include <utility>

#include "Platform/Files/Files.h"

namespace qbdkr {

HelperLauncher::HelperLauncher(HostConfiguration configuration, SystemCalls system,
                               std::function<void()> install)
    : configuration_(std::move(configuration)),
      system_(std::move(system)),
      install_(std::move(install)) {}

bool HelperLauncher::launch() {
  const auto installed = configuration_.installedHelper();
  if (!installed) return false;
  if (!fileExists(*installed)) install_();
  const auto identifier = configuration_.helperIdentifier();
  if (!system_.isRunning(view(identifier), *installed)) return system_.open(*installed);
  // Another host may be opening it, and then a start request would not reach it yet.
  system_.waitWhileOpened(*installed);
  return true;
}

}  // namespace qbdkr
