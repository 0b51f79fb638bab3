#include <CoreServices/CoreServices.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include <ClientComm/Bundle.h>
#include <ClientComm/PropertyList.h>

#include "Platform/Processes/RunningApplications.h"
#include "Platform/Text/CoreFoundationTextMacOS.h"
#include "Platform/Workspace/NativeWorkspace.h"

namespace qbdkr {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds checkInPatience(10);
constexpr milliseconds shortestPause(20);
constexpr milliseconds longestPause(500);

// Tells what the Process Manager says of an application's check-in, which AppKit does for it. One
// of which it says nothing counts as checked in.
bool hasCheckedIn(const PropertyList::Dictionary& information) {
  const PropertyList* flag = information.find("IsCheckedInAttr");
  return flag == nullptr || flag->text() != "0";
}

// Events reach an application that has checked in. Nothing tells when it does, so the Process
// Manager is asked, ever less often.
class ListedApplication final : public Reachability {
 public:
  explicit ListedApplication(const Bundle& bundle)
      : identifier_(bundle.infoString(kCFBundleIdentifierKey).value_or("")),
        path_(bundle.bundlePath()) {}

  // An application without AppKit may never check in, so one that is found running is not awaited.
  [[nodiscard]] bool isKnown() override { return false; }
  [[nodiscard]] bool isThere() override { return false; }

  [[nodiscard]] Presence await(const Descriptor& end, Clock::time_point deadline) override {
    for (milliseconds pause = shortestPause;; pause = std::min(2 * pause, longestPause)) {
      const Presence presence = look();
      if (presence != Presence::running || end.isReadable()) {
        return presence == Presence::reachable ? presence : Presence::ended;
      }
      const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
      if (left.count() <= 0) return isListed_ ? Presence::running : Presence::ended;
      pollfd ended{end.get(), POLLIN, 0};
      ::poll(&ended, 1, static_cast<int>(std::min(left, pause).count()));
    }
  }

 private:
  // Returns "running" also for an application that is not listed yet, or if the process table
  // cannot be read.
  Presence look() {
    if (!process_) {
      const auto processes = processesOfApplication(identifier_, path_);
      isListed_ = !processes || !processes->empty();
      if (!processes || processes->empty()) return Presence::running;
      process_ = processes->front();
    }
    const auto information = informationOfProcess(*process_);
    if (!information) return Presence::ended;
    return hasCheckedIn(*information) ? Presence::reachable : Presence::running;
  }

  const std::string identifier_;
  const std::string path_;
  bool isListed_ = true;
  std::optional<pid_t> process_;
};

}  // namespace

// Launches asynchronously: the call would wait for the end of the launch, which an agent without
// AppKit never tells. A helper agent takes no focus from the host, and no place in a menu.
std::optional<Opening> openApplication(const Bundle& bundle, Reachability& reachability,
                                       Placement /*placement*/) {
  const auto url = directoryURL(bundle.bundlePath());
  if (!url) return std::nullopt;
  LSLaunchURLSpec launch{};
  launch.appURL = url.get();
  launch.launchFlags = kLSLaunchAsync | kLSLaunchDontAddToRecents | kLSLaunchDontSwitch;
  if (LSOpenFromURLSpec(&launch, nullptr) != ::noErr) return Opening{Presence::ended, Descriptor()};
  return Opening{reachability.await(Descriptor(), Clock::now() + checkInPatience), Descriptor()};
}

std::unique_ptr<Reachability> Reachability::of(const Bundle& bundle) {
  return std::make_unique<ListedApplication>(bundle);
}

std::optional<pid_t> processOfPeer(const std::string& bundleIdentifier) {
  const auto processes = processesOfApplication(bundleIdentifier, "");
  if (!processes || processes->empty()) return std::nullopt;
  return processes->front();
}

}  // namespace qbdkr
