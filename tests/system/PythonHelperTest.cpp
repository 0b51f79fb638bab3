// Runs the helper agent in Python from docs/helper-agents.md.

#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "support/Peer.h"
#include "support/ProcessEnd.h"
#include "support/PythonHelper.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

// Makes a host with the helper agent among its resources.
TestBundle makeHost(Scene& scene) {
  TestBundle host = scene.makeHostWithoutHelper("Host", {{"Helepr App name", "PyHelper"}});
  makePythonHelper(host.resources(), scene.helperID());
  return host;
}

struct PythonHelper : testing::Test {
  pid_t helper() const {
    const auto processes = Scene::processesIn(scene.installDirectory());
    return processes.size() == 1 ? processes.front() : 0;
  }

  Scene scene;
  std::unique_ptr<HostProcess> host = scene.start(makeHost(scene));
};

TEST_F(PythonHelper, IsInstalledOpenedStartedAndAsked) {
  host->call("share");
  EXPECT_EQ(host->call("launch"), "yes");
  const std::string client = host->call("fetch-client");
  EXPECT_EQ(client.size(), 32U) << client;
  EXPECT_EQ(
      host->call("ask " + scene.helperID() + " QBHPUploadByHelper unRegSuiteInfo:version: 7 1"),
      "0 https://acme.example/offer/7###300###200");
  // The identifier survives a kill.
  scene.killHelper(*host);
  EXPECT_EQ(host->call("launch"), "yes");
  EXPECT_EQ(host->call("fetch-client"), client);
}

TEST_F(PythonHelper, ReportsReachTheHostBecauseItRunsFromABundle) {
  const auto peer = Peer::inBundle(scene);
  host->call("share");
  peer.awaitOwner(scene.hostID());
  EXPECT_EQ(host->call("launch"), "yes");
  EXPECT_EQ(host->waitForReport("server"), "! server open no-error main-thread");
  EXPECT_NE(host->call("senders").find(scene.helperID()), std::string::npos);
}

TEST_F(PythonHelper, AnswersNothingToWhatItDoesNotKnow) {
  host->call("share");
  EXPECT_EQ(host->call("launch"), "yes");
  const std::string to = "ask " + scene.helperID();
  EXPECT_EQ(host->call(to + " QBHPUploadByHelper productCollectStatus:version: 7 1"), "0 ~");
  EXPECT_EQ(host->call(to + " NoSuchClass start:prodeuctVersion: 7 1"), "0 ~");
  EXPECT_EQ(host->call(to + " QBHPHelperControl start:prodeuctVersion: 1 2 3 4"), "0 ~");
  EXPECT_NE(host->call(to + " QBHPUploadByHelper unRegSuiteInfo:version: 7 1"), "0 ~");
  const auto outside = Peer::outsideBundles(scene);
  EXPECT_EQ(outside.run({"call", scene.helperID(), "QBHPGetDataByHelper", "clientIDFormHelper"}),
            "result ");
}

// It asks for a sender when it serves its event: the flush waits for that.
TEST_F(PythonHelper, HearsTheOnlyRequestOfAProcessThatFlushes) {
  host->call("share");
  Peer::outsideBundles(scene).awaitOwner(scene.hostID());
  EXPECT_EQ(host->call("launch"), "yes");
  host->call("reports 1");
  // These are processes of the same product, so the helper agent's reports to them reach the host.
  const TestBundle bundle = scene.makeHostWithoutHelper("Ending");
  for (int i = 1; i <= 10; ++i) {
    const auto ending = scene.start(bundle);
    ending->begin("send-flush-exit " + scene.helperID() +
                  " QBHPHelperControl start:prodeuctVersion: 1 2");
    EXPECT_EQ(ending->process().wait(), 0);
    host->call("reports " + std::to_string(1 + i));
  }
}

TEST_F(PythonHelper, EndsWhenItIsAskedTo) {
  host->call("share");
  EXPECT_EQ(host->call("launch"), "yes");
  ASSERT_NE(helper(), 0);
  const ProcessEnd asked(helper());
  EXPECT_EQ(host->call("send " + scene.helperID() +
                       " QBHPHelperControl exitHelper:productVersion: 1001 2.0"),
            "0");
  EXPECT_TRUE(asked.comesWithin(patience));
  EXPECT_EQ(host->call("launch"), "yes");
  const pid_t next = helper();
  ASSERT_NE(next, 0);
  const ProcessEnd terminated(next);
  ::kill(next, SIGTERM);
  EXPECT_TRUE(terminated.comesWithin(patience));
}

}  // namespace
}  // namespace qbdkr::test
