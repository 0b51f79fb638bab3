// Kills, restarts and floods the session bus.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <string>

#include "support/Patience.h"
#include "support/Peer.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

// Less than the 25 s for which the bus library waits by itself.

TEST(BusFault, DeathOfTheBusEndsAWaitingRequestOnItAtOnce) {
  Scene scene;
  scene.environment()["QBDKR_DIRECT"] = "0";
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const auto waiting = host->begin("ask " + scene.helperID() + " Probe wait");
  const auto other = host->begin("ask " + scene.helperID() + " Probe wait");
  scene.transcript().waitFor({"Probe wait"});
  scene.bus().kill();
  EXPECT_EQ(host->finish(waiting, soon), "-609 ~");
  EXPECT_EQ(host->finish(other, soon), "-609 ~");
  EXPECT_EQ(host->call("send " + scene.helperID() + " Probe note: x", soon), "-609");
  EXPECT_EQ(host->call("ask " + scene.helperID() + " Probe note: x", soon), "-609 ~");
  EXPECT_EQ(host->call("stop-status", soon), "-609");
}

TEST(BusFault, RestartedBusIsUsedAgainByBothSides) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const pid_t helper = scene.helperProcess();
  for (int round = 1; round <= 3; ++round) {
    scene.bus().kill();
    EXPECT_EQ(host->call("send " + scene.helperID() + " Probe note: nobody", soon), "-609");
    scene.bus().start();
    peer.awaitOwner(scene.helperID());
    peer.awaitOwner(scene.hostID());
    EXPECT_EQ(host->call("restart"), "0");
    scene.fence(*host);
    EXPECT_EQ(peer.run({"call", scene.hostID(), "QBHPHelperControl",
                        "checkServerOpenCallBack::::", "x", "1", "0", ""}),
              "result ");
    host->call("reports " + std::to_string(round));
  }
  EXPECT_EQ(scene.helperProcess(), helper) << "the helper agent did not survive";
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
  EXPECT_EQ(scene.transcript().count("nobody"), 0U) << "a request was replayed";
}

TEST(BusFault, BusThatComesLateIsFound) {
  Scene scene;
  scene.bus().kill();
  const auto peer = Peer::inBundle(scene);
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  EXPECT_EQ(host->call("share", soon), "shared");
  EXPECT_EQ(host->call("stop-status", soon), "-609");
  scene.bus().start();
  peer.awaitOwner(scene.hostID());
  EXPECT_EQ(peer.run({"call", scene.hostID(), "QBHPHelperControl",
                      "checkServerOpenCallBack::::", "x", "1", "0", ""}),
            "result ");
  host->waitForReport("server open");
  EXPECT_EQ(host->call("stop-status"), "-600");
}

TEST(BusFault, SilentBusDoesNotHoldUpPostsForEver) {
  Scene scene;
  const auto bundle = scene.makeHostWithoutHelper("Host");
  const auto host = scene.start(bundle);
  const pid_t daemon = scene.bus().daemonProcess();
  ::kill(daemon, SIGSTOP);
  EXPECT_EQ(host->call("send " + scene.helperID() + " Probe note: x", soon), "-609");
  ::kill(daemon, SIGCONT);
  EXPECT_EQ(host->call("send " + scene.helperID() + " Probe note: x"), "-600");
}

TEST(BusFault, SilentBusDoesNotHoldUpShareAndIsUsedWhenItAnswers) {
  Scene scene;
  const auto bundle = scene.makeHost("Host", "1.0");
  const auto host = scene.start(bundle);
  const pid_t daemon = scene.bus().daemonProcess();
  ::kill(daemon, SIGSTOP);
  EXPECT_EQ(host->call("share", soon), "shared");
  ::kill(daemon, SIGCONT);
  EXPECT_EQ(host->call("launch"), "yes");
  scene.transcript().waitFor({"start:prodeuctVersion:"});
}

TEST(BusFault, FloodOfReportsIsTakenAndRequestsStillGoOut) {
  Scene scene;
  const auto peer = Peer::inBundle(scene);
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  peer.awaitOwner(scene.hostID());
  host->call("quiet");
  constexpr int reports = 20'000;
  const auto flood =
      peer.begin({"post", scene.hostID(), std::to_string(reports), "QBHPHelperControl",
                  "checkServerOpenCallBack::::", "x", "1", "0", "text"});
  for (int i = 0; i < 20; ++i) scene.fence(*host);
  host->call("reports " + std::to_string(reports), longPatience);
  flood->closeInput();
  EXPECT_TRUE(flood->succeeds());
  EXPECT_EQ(host->call("alive"), "0");
}

TEST(BusFault, FloodOfUnknownCallsDoesNoHarm) {
  Scene scene;
  const auto outside = Peer::outsideBundles(scene);
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  outside.awaitOwner(scene.hostID());
  EXPECT_EQ(outside.run({"post", scene.hostID(), "20000", "NoSuchClass", "nothing:", "x"}),
            "posted");
  scene.fence(*host);
  EXPECT_EQ(outside.run({"call", scene.hostID(), "NoSuchClass", "nothing:", "x"}), "result ");
  EXPECT_EQ(host->call("alive"), "0");
}

}  // namespace
}  // namespace qbdkr::test
