// Tests start, liveness, restart and stop of the helper agent from the host's side.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <string>

#include "support/Peer.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

std::string closedServer(const std::string& value) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
         "<key>QBHPServerClosed</key>" +
         value + "</dict></plist>\n";
}

TEST(ServerSwitch, ClosedServerIsNeitherAskedNorLaunched) {
  Scene scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  scene.fence(*host);
  writeFile(scene.home().preferencesFile(scene.helperID()), closedServer("<true/>"));
  EXPECT_EQ(host->call("server-open"), "no");

  const std::size_t before = scene.transcript().lines().size();
  EXPECT_EQ(host->call("restart"), "10");
  scene.fence(*host);
  EXPECT_EQ(scene.transcript().lines().size(), before + 1) << "more than the fence was sent";

  scene.killHelper(*host);
  EXPECT_EQ(host->call("restart"), "10");
  EXPECT_EQ(Scene::processesIn(scene.installDirectory()).size(), 0U);
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
}

TEST(ServerSwitch, OnlyTrueCloses) {
  Scene scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("server-open"), "yes");  // the domain does not exist
  const auto file = scene.home().preferencesFile(scene.helperID());
  writeFile(file, closedServer("<false/>"));
  EXPECT_EQ(host->call("server-open"), "yes");
  writeFile(file, closedServer("<string>YES</string>"));
  EXPECT_EQ(host->call("server-open"), "no");
  writeFile(file, "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict/></plist>");
  EXPECT_EQ(host->call("server-open"), "yes");
  EXPECT_EQ(host->call("restart"), "0");
}

TEST(Liveness, ReachableAndStartedHelperGetsTheLivenessRequestAlone) {
  Scene scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  scene.fence(*host);
  const std::size_t before = scene.transcript().lines().size();
  EXPECT_EQ(host->call("restart"), "0");
  scene.fence(*host);
  const auto& lines = scene.transcript().lines();
  ASSERT_EQ(lines.size(), before + 2);
  EXPECT_NE(lines[before].find("isAlive:prodeuctVersion:"), std::string::npos);
  host->process().waitForLog("result 0 isHelperAlive 1");
}

TEST(Liveness, KilledHelperIsLaunchedAgainAndStarted) {
  Scene scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const pid_t first = scene.helperProcess();
  scene.killHelper(*host);
  EXPECT_EQ(host->call("restart"), "0");
  EXPECT_NE(scene.helperProcess(), first);
  scene.transcript().waitFor({std::to_string(scene.helperProcess()), "start:prodeuctVersion:"});
  EXPECT_EQ(host->call("client"), "client-" + std::to_string(scene.helperProcess()));
}

TEST(Liveness, AutomaticRestartReturnsAtOnceAndLaunchesInTheBackground) {
  Scene scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  scene.killHelper(*host);
  EXPECT_EQ(host->call("auto-restart"), "0");
  scene.transcript().waitForCount(" started version", 2);
  scene.transcript().waitForCount("start:prodeuctVersion:", 2);
}

TEST(Liveness, StoppedHelperIsStartedAgainByTheNextCheck) {
  Scene scene;
  scene.recordEarlierStarts();
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("stop-status"), "0");
  scene.transcript().waitFor({"stop:prodeuctVersion:", " 1001 3.1"});
  EXPECT_EQ(scene.transcript().count("start:prodeuctVersion:"), 1U);
  EXPECT_EQ(host->call("alive"), "0");
  scene.fence(*host);
  EXPECT_EQ(scene.transcript().count("start:prodeuctVersion:"), 2U);
  const std::string sender = " from " + host->identifier();
  EXPECT_EQ(scene.transcript().count("start:prodeuctVersion:" + sender + " 1001 3.1"), 2U);
  EXPECT_EQ(scene.transcript().count("isAlive:prodeuctVersion:" + sender + " 1001 3.1"), 1U);
  EXPECT_EQ(host->call("alive"), "0");
  scene.fence(*host);
  EXPECT_EQ(scene.transcript().count("start:prodeuctVersion:"), 2U) << "it was started already";
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
}

TEST(Liveness, FailedStopRequestStillMeansNotStarted) {
  Scene scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  scene.killHelper(*host);
  EXPECT_EQ(host->call("stop-status"), "-600");
  EXPECT_EQ(host->call("alive"), "-600");
  host->process().waitForLog("result -600 isHelperAlive 0");
}

TEST(HelperReports, AnnouncedExitIsAnsweredByTheStopRequestAndNoRestart) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  peer.awaitOwner(scene.hostID());
  EXPECT_EQ(peer.run({"call", scene.hostID(), "QBHPHelperControl", "helperExitNotify:", "bye"}),
            "result ");
  host->waitForReport("will-exit main-thread");
  scene.transcript().waitFor({"stop:prodeuctVersion:"});
  scene.fence(*host);
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
  EXPECT_EQ(scene.transcript().count("start:prodeuctVersion:"), 1U);
}

TEST(ClientIdentifier, IsFetchedAfterTheStart) {
  Scene scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const std::string expected = "client-" + std::to_string(scene.helperProcess());
  EXPECT_EQ(host->call("fetch-client"), expected);
  EXPECT_EQ(host->call("client"), expected);
  scene.killHelper(*host);
  EXPECT_EQ(host->call("fetch-client"), "~");
  EXPECT_EQ(host->call("client"), "~");
}

TEST(Queries, HaveAnAnswerOnlyWhileTheHelperAgentRuns) {
  Scene scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("not-first-start"), "not-the-first");
  EXPECT_NE(host->call("fetch-client"), "~");
  scene.killHelper(*host);
  EXPECT_EQ(host->call("not-first-start"), "~");
  EXPECT_EQ(host->call("fetch-client"), "~");
}

TEST(StartUp, ShareReturnsBeforeTheHelperAnswers) {
  Scene scene;
  scene.environment()["QBDKR_PROBE_MODE"] = "mute";
  const auto host = scene.start(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("share"), "shared");
  scene.transcript().waitFor({"clientIDFormHelper"});  // the start-up thread now waits
  EXPECT_EQ(host->call("client"), "~");
  EXPECT_EQ(host->call("send " + scene.helperID() + " Probe note: while-waiting"), "0");
  ::kill(scene.helperProcess(), SIGUSR1);
  scene.transcript().waitFor({"while-waiting"});
}

TEST(SeveralHosts, SecondInstanceIsQueuedBehindTheFirstAndInherits) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  const auto bundle = scene.makeHost("Host", "1.0");
  auto first = scene.startAndShare(bundle);
  peer.awaitOwner(scene.hostID());
  const auto second = scene.startAndShare(bundle);
  // Waits until both own or await the name, in this order.
  const std::string expected =
      std::to_string(first->processID()) + ' ' + std::to_string(second->processID()) + ' ';
  const auto deadline = std::chrono::steady_clock::now() + patience;
  std::string queue;
  while (queue != expected && std::chrono::steady_clock::now() < deadline) {
    queue = peer.run({"queue", scene.hostID()});
  }
  EXPECT_EQ(queue, expected);
  const std::vector<std::string> report{
      "call", scene.hostID(), "QBHPHelperControl", "checkServerOpenCallBack::::", "x", "1", "0",
      ""};
  EXPECT_EQ(peer.run(report), "result ");
  first->waitForReport("server open no-error");
  EXPECT_EQ(second->reportsWith("server"), 0U);
  first.reset();  // killed
  EXPECT_EQ(peer.run(report), "result ");
  second->waitForReport("server open no-error");
}

}  // namespace
}  // namespace qbdkr::test
