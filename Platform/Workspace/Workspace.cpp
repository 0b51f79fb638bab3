#include "Platform/Workspace/Workspace.h"

#include <chrono>

#include <ClientComm/Bundle.h>

#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Files/FileLock.h"
#include "Platform/Files/Files.h"
#include "Platform/Processes/RunningApplications.h"
#include "Platform/Workspace/NativeWorkspace.h"
#include "Platform/Workspace/Openings.h"

namespace qbdkr {
namespace {

using Outcome = Openings::Outcome;

// The holder of the lock waits 10 s for a check-in itself.
constexpr std::chrono::seconds lockPatience(15);
// Longer than one thread waits for the lock and the check-in.
constexpr std::chrono::seconds turnPatience(30);

Openings& openings() {
  static NeverDestroyed instance([] { return Openings(); });
  return *instance;
}

bool isRunning(const Bundle& bundle) {
  const auto identifier = bundle.infoString(kCFBundleIdentifierKey);
  return identifier && isApplicationRunning(*identifier, fetchProcessTable());
}

// Opens it in one process at a time: the next process finds the application running. A process that
// keeps the lock all the time may be about to start it, so starting another one would be wrong; a
// later call tries again. On a file system without locks it starts in any case.
bool openAlone(const std::string& bundlePath) {
  const auto lock = FileLock::acquire(bundlePath, lockPatience);
  const auto bundle = Bundle::withPath(bundlePath);
  if (!bundle) return false;
  return isRunning(*bundle) || (!lock.isTaken() && openApplication(*bundle));
}

}  // namespace

bool openFile(const std::string& bundlePath) {
  const auto deadline = Openings::Clock::now() + turnPatience;
  for (;;) {
    const auto outcome = openings().join(bundlePath, deadline, [&] {
      return openAlone(bundlePath) ? Outcome::opened : Outcome::failed;
    });
    if (outcome != Outcome::awaited) return outcome == Outcome::opened;
  }
}

void waitWhileOpened(const std::string& bundlePath) {
  openings().join(bundlePath, Openings::Clock::now() + turnPatience, [&] {
    [[maybe_unused]] const auto lock = FileLock::acquire(bundlePath, lockPatience);
    return Outcome::awaited;
  });
}

}  // namespace qbdkr
