#include "ProductClient/HelperLauncher.h"

#include <utility>

#include "Platform/Files/Files.h"

namespace qbdkr {

HelperLauncher::HelperLauncher(HostConfiguration configuration, SystemCalls system, Actions actions)
    : configuration_(std::move(configuration)),
      system_(std::move(system)),
      actions_(std::move(actions)) {}

bool HelperLauncher::launch() {
  const auto installed = configuration_.installedHelper();
  if (!installed) return false;
  if (!fileExists(*installed)) actions_.install();
  const auto identifier = configuration_.helperIdentifier();
  const auto isRunning = [&] { return system_.isRunning(view(identifier), *installed); };
  if (!isRunning()) return open(*installed) || (actions_.repair() && open(*installed));
  // Another host may be opening or replacing it, and then a start request would be lost.
  return system_.keepOpen(*installed) || isRunning();
}

bool HelperLauncher::open(const std::string& installed) {
  actions_.announce();
  return system_.open(installed);
}

}  // namespace qbdkr
