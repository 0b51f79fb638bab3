// Opens an application while another process keeps the lock of its bundle, as a process does that
// is stopped while it opens the application; or while the session bus is stuck.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/Peer.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

// Longer than a host's wait for the lock.
constexpr std::chrono::seconds enough(60);

class KeptLock {
 public:
  explicit KeptLock(const std::filesystem::path& path)
      : file_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    EXPECT_EQ(::flock(file_.get(), LOCK_EX | LOCK_NB), 0);
  }

 private:
  Descriptor file_;
};

std::string open(const Scene& scene) { return "open " + scene.installedHelper().string(); }

TEST(OpeningFault, WithoutTheLockTheApplicationIsNotOpened) {
  Scene scene;
  scene.makeHelper("1.0", scene.installDirectory());
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  const KeptLock lock(scene.installedHelper());
  std::vector<std::string> tags;
  for (int i = 0; i < 4; ++i) tags.push_back(host->begin(open(scene)));
  for (const auto& tag : tags) EXPECT_EQ(host->finish(tag, enough), "no");
  EXPECT_EQ(scene.transcript().count(" started version"), 0U);
}

TEST(OpeningFault, WithoutTheLockAnApplicationThatRunsByThenIsOpen) {
  Scene scene;
  const auto bundle = scene.makeHelper("1.0", scene.installDirectory());
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  const KeptLock lock(scene.installedHelper());
  const auto opening = host->begin(open(scene));
  const ChildProcess helper({bundle.executable().string()}, scene.options());
  scene.transcript().waitFor({" started version"});
  EXPECT_EQ(host->finish(opening, enough), "yes");
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
}

TEST(OpeningFault, AnApplicationWhoseEndTheBusHasNotSeenIsStarted) {
  Scene scene;
  scene.makeHelper("1.0", scene.installDirectory());
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  const auto gone = Peer::outsideBundles(scene).begin({"leave", scene.helperID()});
  EXPECT_EQ(gone->firstLine(), "left");
  EXPECT_EQ(host->call(open(scene)), "yes");
  scene.transcript().waitFor({" started version"});
}

TEST(OpeningFault, AnApplicationThatIsReachedIsNotStartedThoughItsProcessIsAnother) {
  Scene scene;
  scene.makeHelper("1.0", scene.installDirectory());
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  const auto standIn = Peer::outsideBundles(scene).begin({"hold", scene.helperID()});
  EXPECT_EQ(standIn->firstLine(), "ready");
  EXPECT_EQ(host->call(open(scene)), "yes");
  EXPECT_EQ(scene.transcript().count(" started version"), 0U);
}

TEST(OpeningFault, WhereThereCanBeNoLockTheApplicationIsOpened) {
  Scene scene;
  scene.makeHelper("1.0", scene.installDirectory());
  auto options = scene.options();
  options.obeyFilePermissions = true;
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"), options);
  // A directory that cannot be read cannot be locked, but the files in it can be reached.
  std::filesystem::permissions(scene.installedHelper(), std::filesystem::perms::owner_exec);
  EXPECT_EQ(host->call(open(scene)), "yes");
  std::filesystem::permissions(scene.installedHelper(), std::filesystem::perms::owner_all);
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
}

TEST(OpeningFault, AThreadThatFindsItRunningWaitsForTheOneThatOpensIt) {
  Scene scene;
  scene.environment()["QBDKR_PROBE_MODE"] = "never-check-in";  // before SIGUSR1
  const auto host = scene.start(scene.makeHost("Host", "1.0"));
  host->call("share");
  scene.transcript().waitFor({" started version"});
  const auto launch = host->begin("launch");
  for (int i = 0; i < 10; ++i) EXPECT_EQ(host->call("running " + scene.helperID()), "yes");
  ::kill(scene.helperProcess(), SIGUSR1);
  EXPECT_EQ(host->finish(launch), "yes");
  scene.transcript().waitForCount("start:prodeuctVersion:", 2);
}

TEST(OpeningFault, AThreadThatOpensDoesSoAfterOneThatOnlyWaits) {
  Scene scene;
  scene.makeHelper("1.0", scene.installDirectory());
  const auto host = scene.startAndShare(scene.makeHostWithoutHelper("Host"));
  auto lock = std::make_unique<KeptLock>(scene.installedHelper());
  const auto launch = host->begin("launch");  // it finds a helper agent, and waits for the lock
  for (int i = 0; i < 10; ++i) EXPECT_EQ(host->call("running " + scene.helperID()), "yes");
  scene.killHelper(*host);
  const auto opening = host->begin(open(scene));
  for (int i = 0; i < 10; ++i) EXPECT_EQ(host->call("running " + scene.helperID()), "no");
  lock.reset();
  EXPECT_EQ(host->finish(launch, enough), "yes");
  EXPECT_EQ(host->finish(opening, enough), "yes");
  EXPECT_EQ(scene.transcript().count(" started version"), 2U);
}

TEST(OpeningFault, ANameThatIsOnTheBusAlreadyIsNotWaitedFor) {
  Scene scene;
  scene.environment()["QBDKR_PROBE_MODE"] = "never-check-in";
  scene.makeHelper("1.0", scene.installDirectory());
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  const auto peer = Peer::inBundle(scene);
  const auto owner = peer.begin({"serve", scene.helperID(), "1"});
  owner->waitForOutput([](const std::string& line) { return line == "ready"; });
  constexpr std::chrono::seconds lessThanTheCheckIn(8);
  EXPECT_EQ(host->call(open(scene), lessThanTheCheckIn), "yes");
}

TEST(OpeningFault, ABusThatIsStuckHoldsItUpNoLongerThanTheCheckInDoes) {
  Scene scene;
  scene.makeHelper("1.0", scene.installDirectory());
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  ::kill(scene.bus().daemonProcess(), SIGSTOP);
  EXPECT_EQ(host->call(open(scene), enough), "yes");
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
}

}  // namespace
}  // namespace qbdkr::test
