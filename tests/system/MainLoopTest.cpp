// Tests hosts with the main loops of the desktops: what the framework does in them, and that it
// sleeps while nothing happens.

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "support/BusMonitor.h"
#include "support/Peer.h"
#include "support/ProcessEnd.h"
#include "support/Programs.h"
#include "support/Sanitizers.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

// The name of the host that runs the main run loop itself.
constexpr const char* ownLoop = "RunLoop";

std::vector<HostProbe> hostsInLoops() {
  auto all = hostProbes();
  all.push_back({ownLoop, hostProbe()});
  return all;
}

class MainLoop : public testing::TestWithParam<HostProbe> {
 protected:
  MainLoop() {
    scene.useHostProbe(GetParam());
    if (GetParam().name != ownLoop) scene.environment()["QBDKR_PROBE_LOOP"] = "embedded";
    host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  }

  Scene scene;
  std::unique_ptr<HostProcess> host;
};

std::string probeName(const testing::TestParamInfo<HostProbe>& host) { return host.param.name; }

INSTANTIATE_TEST_SUITE_P(OfEachKind, MainLoop, testing::ValuesIn(hostsInLoops()), probeName);

TEST_P(MainLoop, BringsTimersTasksReportsAndCompletions) {
  const Peer peer = Peer::inBundle(scene);
  peer.awaitOwner(scene.hostID());
  EXPECT_EQ(host->call("ticks 3"), "ticked");
  EXPECT_EQ(host->call("ask-on-main " + scene.helperID() + " Probe echo: task"), "0 task");
  EXPECT_EQ(host->call("ask-from-main " + scene.helperID() + " Probe echo: asked"),
            "0 asked main-thread");
  EXPECT_EQ(host->call("ask-from-main com.Acme.Nobody Probe echo: asked"), "-600 ~ main-thread");
  const auto report = peer.begin({"post", scene.hostID(), "1", "QBHPHelperControl",
                                  "checkServerOpenCallBack::::", "x", "1", "0", ""});
  host->waitForReport("server open no-error main-thread");
  host->quit();
}

class WatchingLoop : public MainLoop {};

INSTANTIATE_TEST_SUITE_P(OfEachKind, WatchingLoop, testing::ValuesIn(hostProbes()), probeName);

TEST_P(WatchingLoop, IsNotEndedByStopWhichEndsTheNextRun) {
  host->call("stop-run-loop");
  EXPECT_EQ(host->call("ticks 3"), "ticked");
  EXPECT_EQ(host->call("run-on-main"), "ended");
  const std::string nested = host->begin("run-on-main");
  EXPECT_EQ(host->call("ticks 3"), "ticked");
  EXPECT_FALSE(host->hasFinished(nested)) << "stop() was remembered twice";
  host->call("stop-run-loop");
  EXPECT_EQ(host->finish(nested), "ended");
  EXPECT_EQ(host->call("ticks 3"), "ticked");
  host->quit();
}

// Counts how often the threads of a process were woken, and the time that they ran.
struct Activity {
  std::uint64_t wakeUps = 0;
  std::uint64_t nanoseconds = 0;
  bool operator==(const Activity&) const = default;
};

Activity activityOf(pid_t process) {
  Activity all;
  for (const auto& thread :
       std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    std::uint64_t time = 0;
    std::uint64_t waited = 0;
    std::uint64_t slices = 0;  // each begins with a wake-up, or after another process
    std::ifstream(thread.path() / "schedstat") >> time >> waited >> slices;
    all.nanoseconds += time;
    all.wakeUps += slices;
  }
  return all;
}

// Returns what a process does in a span of time.
Activity activityIn(std::chrono::milliseconds span, pid_t process) {
  const Activity before = activityOf(process);
  EXPECT_FALSE(ProcessEnd(process).comesWithin(span));
  const Activity after = activityOf(process);
  return {after.wakeUps - before.wakeUps, after.nanoseconds - before.nanoseconds};
}

TEST_P(MainLoop, SleepsWhileNothingHappens) {
  if (hasThreadSanitizer) GTEST_SKIP() << "the sanitizer has a thread that wakes by itself";
  constexpr std::chrono::seconds observed(3);
  constexpr std::chrono::milliseconds quiet(300);
  const auto deadline = std::chrono::steady_clock::now() + patience / 2;  // before the timer's 60 s
  while (activityIn(quiet, host->processID()) != Activity()) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "it never comes to rest";
  }
  const Activity activity = activityIn(observed, host->processID());
  EXPECT_EQ(activity.wakeUps, 0U);
  EXPECT_EQ(activity.nanoseconds, 0U);
  EXPECT_EQ(host->call("ticks 3"), "ticked");
  EXPECT_GT(activityOf(host->processID()).wakeUps, 0U);
}

// As the main thread of a user interface that has to show its windows first.
TEST(BusyMainThread, LosesNoReportToAStartRequestThatWasSentBeforeItsLoopRuns) {
  Scene scene;
  const auto host = scene.start(scene.makeHost("Host", "1.0"));
  host->call("block-main share");
  const Peer peer = Peer::inBundle(scene);
  scene.transcript().waitFor({"start:prodeuctVersion:"});
  // Posts at once, to the name as it is then.
  const auto report = peer.begin({"post", scene.hostID(), "1", "QBHPHelperControl",
                                  "checkServerOpenCallBack::::", "x", "1", "0", ""});
  report->firstLine();
  host->call("release-main");
  host->process().waitForLog("checkServerOpenCallBack::::");
  EXPECT_EQ(host->call("ticks 3"), "ticked");
}

TEST(BusyMainThread, GivesBackANameThatIsNotWantedAnyMore) {
  Scene scene;
  BusMonitor monitor(Peer::inBundle(scene));
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  host->call("block-main");
  EXPECT_EQ(host->call("claim-and-leave"), "left");
  monitor.waitForOwner(scene.hostID());
  host->call("release-main");
  monitor.waitForLoss(scene.hostID());
}

}  // namespace
}  // namespace qbdkr::test
