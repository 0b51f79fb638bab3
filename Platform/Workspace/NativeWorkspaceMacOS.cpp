#include <CoreServices/CoreServices.h>

#include "Platform/Processes/RunningApplications.h"
#include "Platform/Text/CoreFoundationTextMacOS.h"
#include "Platform/Workspace/NativeWorkspace.h"

namespace qbdkr {

// Without the flag for asynchronous launches the call returns when the application has been
// launched, or has ended before that. A helper agent takes no focus from the host, and no place in
// a menu.
std::optional<Opening> openApplication(const Bundle& bundle) {
  const auto url = directoryURL(bundle.bundlePath());
  if (!url) return std::nullopt;
  LSLaunchURLSpec launch{};
  launch.appURL = url.get();
  launch.launchFlags = kLSLaunchDontAddToRecents | kLSLaunchDontSwitch;
  const bool isOpen = LSOpenFromURLSpec(&launch, nullptr) == ::noErr;
  return Opening{isOpen ? Presence::reachable : Presence::ended, Descriptor()};
}

// The process table has every application.
bool isReachable(const Bundle& /*bundle*/, std::chrono::steady_clock::time_point /*deadline*/) {
  return false;
}

// The system keeps the events for an application that is starting.
Presence awaitPresence(const Bundle& /*bundle*/, const Descriptor& /*end*/,
                       std::chrono::steady_clock::time_point /*deadline*/) {
  return Presence::reachable;
}

std::optional<pid_t> processOfPeer(const std::string& bundleIdentifier) {
  const auto processes = processesOfApplication(bundleIdentifier, "");
  if (!processes || processes->empty()) return std::nullopt;
  return processes->front();
}

}  // namespace qbdkr
