// Tests that what a process posts before it ends is heard, if it flushes.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "support/Patience.h"
#include "support/Peer.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

const std::string timedOut = "-1712";
const std::string noBus = "-609";
const std::string longWait = std::to_string(std::chrono::milliseconds(patience).count());

void awaitLine(ChildProcess& process, const std::string& wanted, std::size_t from = 0) {
  process.waitForOutput([&](const std::string& line) { return line == wanted; }, from);
}

// Runs a host and its helper agent. Further processes post, flush and end.
class Flush : public testing::Test {
 protected:
  Flush() { Peer::outsideBundles(scene).awaitOwner(scene.hostID()); }

  // Starts a process that posts one event, its first and last, and ends when that was taken.
  std::unique_ptr<HostProcess> startEnding(const std::string& event) {
    auto ending = scene.start(endingBundle);
    ending->begin("send-flush-exit " + event);
    return ending;
  }

  [[nodiscard]] std::string toHost(const std::string& mark) const {
    return scene.hostID() + " QBHPHelperControl checkServerOpenCallBack:::: " + mark + " 1 0 x";
  }
  [[nodiscard]] std::string toHelper(const std::string& mark) const {
    return scene.helperID() + " Probe note: " + mark;
  }

  // Starts a program in C that owns a name of its own.
  std::unique_ptr<ChildProcess> startPeer(const std::string& command, const std::string& name,
                                          const std::vector<std::string>& words = {}) {
    std::vector<std::string> all{command, scene.identifier(name)};
    all.insert(all.end(), words.begin(), words.end());
    auto peer = Peer::inBundle(scene, name).begin(all);
    awaitLine(*peer, "ready");
    return peer;
  }

  void post(const std::string& name) {
    EXPECT_EQ(host->call("send " + scene.identifier(name) + " Probe note: x"), "0");
  }

  Scene scene;
  std::unique_ptr<HostProcess> host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const TestBundle endingBundle =
      scene.makeHostWithoutHelper("Ending", {{"CFBundleIdentifier", scene.identifier("Ending")}});
};

TEST_F(Flush, OnlyReportOfAProcessIsHeardByAnIdleHost) {
  constexpr int processes = 40;
  for (int i = 0; i < processes; ++i) {
    EXPECT_EQ(startEnding(toHost("last-word-" + std::to_string(i)))->process().wait(), 0);
  }
  host->call("reports " + std::to_string(processes));
  for (int i = 0; i < processes; ++i) {
    host->process().waitForLog("checkServerOpenCallBack:::: last-word-" + std::to_string(i) + " 1");
  }
  EXPECT_NE(host->call("senders").find(scene.identifier("Ending")), std::string::npos);
}

TEST_F(Flush, OnlyReportsOfProcessesAreHeardByABusyHost) {
  constexpr int processes = 10;
  EXPECT_EQ(host->call("block-main"), "blocked");
  std::vector<std::unique_ptr<HostProcess>> ending;
  for (int i = 0; i < processes; ++i) {
    ending.push_back(startEnding(toHost("last-word-" + std::to_string(i))));
    awaitLine(ending.back()->process(), "! posted");
  }
  EXPECT_EQ(host->reportsWith("server"), 0U);
  host->call("release-main");
  for (const auto& process : ending) EXPECT_EQ(process->process().wait(), 0);
  host->call("reports " + std::to_string(processes));
}

TEST_F(Flush, OnlyRequestOfAHostIsHeardByAnIdleHelper) {
  constexpr int processes = 40;
  for (int i = 0; i < processes; ++i) {
    const std::string mark = "last-word-" + std::to_string(i);
    EXPECT_EQ(startEnding(toHelper(mark))->process().wait(), 0);
    scene.transcript().waitFor({"Probe note: from " + scene.identifier("Ending"), mark});
  }
}

TEST_F(Flush, OnlyRequestsOfHostsAreHeardByABusyHelper) {
  constexpr int processes = 10;
  const auto waiting = host->begin("ask " + scene.helperID() + " Probe wait");
  scene.transcript().waitFor({"Probe wait"});
  std::vector<std::unique_ptr<HostProcess>> ending;
  for (int i = 0; i < processes; ++i) {
    ending.push_back(startEnding(toHelper("last-word-" + std::to_string(i))));
    awaitLine(ending.back()->process(), "! posted");
  }
  ::kill(scene.helperProcess(), SIGUSR1);
  for (const auto& process : ending) EXPECT_EQ(process->process().wait(), 0);
  scene.transcript().waitForCount("Probe note: from " + scene.identifier("Ending"), processes);
  EXPECT_EQ(host->finish(waiting), "0 ~");
}

TEST_F(Flush, NothingPostedIsTakenAtOnce) {
  const auto other = scene.start(endingBundle);
  EXPECT_EQ(other->call("flush 0"), "0");
  EXPECT_EQ(other->call("send " + scene.identifier("Absent") + " Probe note: x"), "-600");
  EXPECT_EQ(other->call("flush 0"), "0") << "nothing went out";
  scene.bus().kill();
  EXPECT_EQ(scene.start(endingBundle)->call("flush 0"), "0") << "without a bus";
}

TEST_F(Flush, StoppedTargetIsWaitedForUntilTheDeadlineAndThenAskedAgain) {
  const pid_t helper = scene.helperProcess();
  EXPECT_EQ(host->call("flush " + longWait), "0");
  ::kill(helper, SIGSTOP);
  EXPECT_EQ(host->call("send " + toHelper("x")), "0");
  EXPECT_EQ(host->call("flush 200"), timedOut);
  EXPECT_EQ(host->call("flush 0"), timedOut);
  const auto waiting = host->begin("flush " + longWait);
  ::kill(helper, SIGCONT);
  EXPECT_EQ(host->finish(waiting), "0");
  EXPECT_EQ(scene.transcript().count("Probe note:"), 1U) << "taken before the answer";
  EXPECT_EQ(host->call("flush 0"), "0") << "once taken, it is not asked for again";
}

TEST_F(Flush, TargetThatDiesIsNotWaitedFor) {
  const auto peer = startPeer("hold", "Held");
  post("Held");
  const auto waiting = host->begin("flush " + longWait);
  awaitLine(*peer, "no-auto-start QBHP.Delivery1 Flush");
  EXPECT_FALSE(host->hasFinished(waiting));
  peer->kill();
  EXPECT_EQ(host->finish(waiting, soon), "0");
  const auto next = startPeer("hold", "Next");
  post("Next");
  next->kill();
  EXPECT_EQ(host->call("flush " + longWait, soon), "0") << "it was gone before";
}

TEST_F(Flush, BusThatDiesIsTold) {
  const auto peer = startPeer("hold", "Held");
  post("Held");
  const auto waiting = host->begin("flush " + longWait);
  awaitLine(*peer, "no-auto-start QBHP.Delivery1 Flush");
  scene.bus().kill();
  EXPECT_EQ(host->finish(waiting, soon), noBus);
  EXPECT_EQ(host->call("flush " + longWait, soon), "0") << "said once";
}

TEST_F(Flush, BusThatDiedAfterAPostIsTold) {
  EXPECT_EQ(host->call("flush " + longWait), "0");
  EXPECT_EQ(host->call("send " + toHelper("x")), "0");
  scene.bus().kill();
  EXPECT_EQ(host->call("send " + toHelper("y"), soon), noBus);
  EXPECT_EQ(host->call("flush " + longWait, soon), noBus);
  EXPECT_EQ(host->call("flush " + longWait, soon), "0") << "said once";
}

TEST_F(Flush, PeerThatDoesNotKnowTheQuestionHasReadWhatCameBefore) {
  const auto peer = startPeer("answer", "Plain", {"1"});
  post("Plain");
  EXPECT_EQ(host->call("flush " + longWait, soon), "0");
  awaitLine(*peer, scene.identifier("Plain"));
}

TEST_F(Flush, RefusalOfTheBusIsTold) {
  Scene strict({.deniedInterface = "QBHP.Delivery1"});
  const auto sender = strict.startAndShare(strict.makeHost("Host", "1.0"));
  EXPECT_EQ(sender->call("send " + strict.helperID() + " Probe note: x"), "0");
  EXPECT_EQ(sender->call("flush " + longWait, soon), "-1743");
}

TEST_F(Flush, TargetsAreAskedSideBySideAndOthersSendMeanwhile) {
  const auto one = startPeer("hold", "One");
  const auto two = startPeer("hold", "Two");
  post("One");
  post("Two");
  EXPECT_EQ(host->call("send " + toHelper("x")), "0");
  const auto waiting = host->begin("flush " + longWait);
  awaitLine(*one, "no-auto-start QBHP.Delivery1 Flush");
  awaitLine(*two, "no-auto-start QBHP.Delivery1 Flush");
  EXPECT_EQ(host->call("ask " + scene.helperID() + " Probe echo: meanwhile"), "0 meanwhile");
  EXPECT_EQ(host->call("send " + toHelper("y")), "0");
  one->kill();
  EXPECT_EQ(host->call("flush 200"), timedOut) << "of another thread, for the second target";
  EXPECT_FALSE(host->hasFinished(waiting));
  two->kill();
  EXPECT_EQ(host->finish(waiting, soon), "0");
}

TEST_F(Flush, StartedRequestIsNotWaitedForAndIsAnsweredMeanwhile) {
  EXPECT_EQ(host->call("flush " + longWait), "0");
  const auto request = host->begin("start-on main - " + scene.helperID() + " Probe wait");
  scene.transcript().waitFor({"Probe wait"});
  const auto plain = startPeer("answer", "Plain", {"1"});
  post("Plain");
  EXPECT_EQ(host->call("flush " + longWait, soon), "0");
  EXPECT_FALSE(host->hasFinished(request));
  const auto held = startPeer("hold", "Held");
  post("Held");
  const auto waiting = host->begin("flush " + longWait);
  awaitLine(*held, "no-auto-start QBHP.Delivery1 Flush");
  ::kill(scene.helperProcess(), SIGUSR1);
  EXPECT_TRUE(host->finish(request, soon).starts_with("0 ~ main-thread outside"));
  EXPECT_FALSE(host->hasFinished(waiting));
  const auto later = host->begin("start-on main - " + scene.helperID() + " Probe wait");
  scene.transcript().waitForCount("Probe wait", 2);
  held->kill();
  EXPECT_EQ(host->finish(waiting, soon), "0");
  EXPECT_FALSE(host->hasFinished(later));
  ::kill(scene.helperProcess(), SIGUSR1);
  EXPECT_TRUE(host->finish(later, soon).starts_with("0 ~ main-thread outside"));
}

}  // namespace
}  // namespace qbdkr::test
