// Opening an application on macOS, over doubles of Launch Services and of the process table.

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>

#include <ClientComm/Bundle.h>

#include "Platform/Workspace/NativeWorkspace.h"
#include "macos/doubles/LaunchServices.h"
#include "macos/doubles/Processes.h"
#include "support/Environment.h"

namespace qbdkr {
namespace {

using doubles::LaunchServices;
using doubles::Processes;
using Clock = Reachability::Clock;

const std::string identifier = "com.example.helper";
constexpr pid_t process = 4711;

class MacOSWorkspaceTest : public testing::Test {
 protected:
  MacOSWorkspaceTest() {
    test::writeFile(home_.path() / "Helper.app/Contents/Info.plist",
                    "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" +
                        identifier + "</string></dict></plist>");
    bundle_ = Bundle::withPath(home_.path() / "Helper.app");
  }

  // Lists the application, as it stands from then on.
  static void list(std::optional<bool> hasCheckedIn) {
    Processes::shared().applications = {{process, identifier, hasCheckedIn}};
  }

  std::optional<Opening> open() {
    const auto reachability = Reachability::of(*bundle_);
    return openApplication(*bundle_, *reachability, Placement::withHost);
  }

  Presence await(std::chrono::milliseconds patience) {
    return Reachability::of(*bundle_)->await(Descriptor(), Clock::now() + patience);
  }

 private:
  const test::TemporaryDirectory home_;
  std::optional<Bundle> bundle_;
};

TEST_F(MacOSWorkspaceTest, LaunchIsAsynchronousAndTakesNoFocus) {
  list(true);
  open();
  EXPECT_EQ(LaunchServices::shared().launches,
            std::vector{kLSLaunchAsync | kLSLaunchDontAddToRecents | kLSLaunchDontSwitch});
}

TEST_F(MacOSWorkspaceTest, OpeningEndsWhenTheApplicationHasCheckedIn) {
  LaunchServices::shared().launch = [] {
    list(false);
    return noErr;
  };
  Processes::shared().onLook = [](int look) { list(look >= 4); };
  EXPECT_EQ(open().value().presence, Presence::reachable);
  EXPECT_EQ(Processes::shared().looks, 4);
}

TEST_F(MacOSWorkspaceTest, ApplicationOfWhichTheSystemDoesNotTellIsReached) {
  list(std::nullopt);
  EXPECT_EQ(open().value().presence, Presence::reachable);
}

TEST_F(MacOSWorkspaceTest, LaunchThatIsRefusedIsAnEnd) {
  list(true);
  LaunchServices::shared().launch = [] { return OSStatus{-10'827}; };
  EXPECT_EQ(open().value().presence, Presence::ended);
}

TEST_F(MacOSWorkspaceTest, ApplicationThatEndsBeforeItsCheckInHasEnded) {
  list(false);
  Processes::shared().onLook = [](int look) {
    if (look == 4) Processes::shared().applications.clear();
  };
  EXPECT_EQ(open().value().presence, Presence::ended);
}

TEST_F(MacOSWorkspaceTest, ApplicationThatNeverChecksInRunsAtTheDeadline) {
  list(false);
  EXPECT_EQ(await(std::chrono::milliseconds(30)), Presence::running);
}

TEST_F(MacOSWorkspaceTest, ApplicationThatIsNotListedByTheDeadlineHasEnded) {
  EXPECT_EQ(await(std::chrono::milliseconds(30)), Presence::ended);
}

}  // namespace
}  // namespace qbdkr
