#include "ProductClient/HelperLauncher.h"

#include <utility>

#include "Platform/Files/Files.h"

namespace qbdkr {

HelperLauncher::HelperLauncher(HostConfiguration configuration, SystemCalls system,
                               std::function<void()> install, std::function<bool()> repair)
    : configuration_(std::move(configuration)),
      system_(std::move(system)),
      install_(std::move(install)),
      repair_(std::move(repair)) {}

bool HelperLauncher::launch() {
  const auto installed = configuration_.installedHelper();
  if (!installed) return false;
  if (!fileExists(*installed)) install_();
  if (system_.open(*installed)) return true;
  // It may run although it cannot be opened: its files may be gone, or another host replaces them.
  const auto identifier = configuration_.helperIdentifier();
  if (system_.isRunning(view(identifier), *installed)) return true;
  return repair_() && system_.open(*installed);
}

}  // namespace qbdkr
