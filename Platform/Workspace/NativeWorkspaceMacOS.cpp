#include <CoreServices/CoreServices.h>

#include <memory>

#include "Platform/Processes/RunningApplications.h"
#include "Platform/Text/CoreFoundationTextMacOS.h"
#include "Platform/Workspace/NativeWorkspace.h"

namespace qbdkr {
namespace {

// The process table has every application, and the system keeps the events for one that is
// starting.
class AnyApplication final : public Reachability {
 public:
  [[nodiscard]] bool isKnown() override { return false; }
  [[nodiscard]] bool isThere() override { return false; }
  [[nodiscard]] Presence await(const Descriptor& /*end*/, Clock::time_point /*deadline*/) override {
    return Presence::running;
  }
};

}  // namespace

// Without the flag for asynchronous launches the call returns when the application has been
// launched, or has ended before that. A helper agent takes no focus from the host, and no place in
// a menu.
std::optional<Opening> openApplication(const Bundle& bundle, Reachability& /*reachability*/) {
  const auto url = directoryURL(bundle.bundlePath());
  if (!url) return std::nullopt;
  LSLaunchURLSpec launch{};
  launch.appURL = url.get();
  launch.launchFlags = kLSLaunchDontAddToRecents | kLSLaunchDontSwitch;
  const bool isOpen = LSOpenFromURLSpec(&launch, nullptr) == ::noErr;
  return Opening{isOpen ? Presence::reachable : Presence::ended, Descriptor()};
}

std::unique_ptr<Reachability> Reachability::of(const Bundle& /*bundle*/) {
  return std::make_unique<AnyApplication>();
}

std::optional<pid_t> processOfPeer(const std::string& bundleIdentifier) {
  const auto processes = processesOfApplication(bundleIdentifier, "");
  if (!processes || processes->empty()) return std::nullopt;
  return processes->front();
}

}  // namespace qbdkr
