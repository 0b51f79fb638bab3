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
  const auto placement =
      configuration_.putsHelperInOwnScope() ? Placement::ownScope : Placement::withHost;
  if (system_.open(*installed, actions_.announce, placement)) return true;
  // It may run although it cannot be opened: its files may be gone, or another host replaces them.
  const auto identifier = configuration_.helperIdentifier();
  if (system_.isRunning(view(identifier), *installed)) return true;
  return actions_.repair() && system_.open(*installed, actions_.announce, placement);
}

}  // namespace qbdkr
