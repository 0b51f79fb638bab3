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
  const auto identifier = configuration_.helperIdentifier();
  const auto isRunning = [&] { return system_.isRunning(view(identifier), *installed); };
  if (!isRunning()) return system_.open(*installed) || (repair_() && system_.open(*installed));
  // Another host may be opening or replacing it, and then a start request would be lost.
  return system_.keepOpen(*installed) || isRunning();
}

}  // namespace qbdkr
