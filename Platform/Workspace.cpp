#include "Platform/Workspace.h"

#include <chrono>

#include "Platform/Bundle.h"
#include "Platform/FileLock.h"
#include "Platform/Files.h"
#include "Platform/OpenApplication.h"
#include "Platform/RunningApplications.h"

namespace qbdkr {
namespace {

// Whoever holds the lock waits 10 s for a check-in himself.
constexpr std::chrono::seconds lockPatience(15);

}  // namespace

bool openFile(const std::string& bundlePath) {
  // One opener at a time: the next one finds the application running. Where there are no locks, or
  // whoever has it is stuck, two at the same time are the lesser evil.
  const auto lock = FileLock::acquire(bundlePath, lockPatience);
  const auto bundle = Bundle::withPath(bundlePath);
  if (!bundle) return false;
  const auto identifier = bundle->infoString(kCFBundleIdentifierKey);
  return (identifier && isApplicationRunning(*identifier)) || openApplication(*bundle);
}

void waitWhileOpened(const std::string& bundlePath) {
  [[maybe_unused]] const auto lock = FileLock::acquire(bundlePath, lockPatience);
}

}  // namespace qbdkr
