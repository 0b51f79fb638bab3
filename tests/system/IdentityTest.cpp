// Tests how a host identifies senders: by the process on the bus, and the program that it ran at
// its first event.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Events/BundleIdentifier.h"
#include "Platform/Events/RPCEvent.h"
#include "support/BusGate.h"
#include "support/Peer.h"
#include "support/ProbeText.h"
#include "support/Programs.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

void awaitWord(ChildProcess& process, const std::string& word, std::size_t from = 0) {
  process.waitForOutput([&](const std::string& line) { return line == word; }, from);
}

// Runs a host behind a gate, which has handled no event yet.
class Identity : public testing::Test {
 protected:
  Identity() {
    scene.environment()["DBUS_SESSION_BUS_ADDRESS"] = gate.address();
    host = scene.start(scene.makeHostWithoutHelper("Host"));
    host->call("share");
    scene.environment()["DBUS_SESSION_BUS_ADDRESS"] = scene.bus().address();
    Peer::outsideBundles(scene).awaitOwner(scene.hostID());
  }

  // Makes a bundle with a program and an identifier of this name.
  Peer application(const std::string& name) { return Peer::inBundle(scene, name); }

  [[nodiscard]] std::string report(const Peer& peer) const {
    return peer.run({"call", scene.hostID(), "QBHPHelperControl",
                     "checkServerOpenCallBack::::", "x", "1", "0", ""});
  }

  [[nodiscard]] std::size_t reports() const { return host->reportsWith("server open"); }

  // Waits until the host has handled all earlier events.
  void settle(const std::string& fence = "Fence") {
    EXPECT_EQ(report(application(fence)), "result ");
    host->call("share");
  }

  [[nodiscard]] bool isSender(const std::string& name) {
    return host->call("senders").find(scene.identifier(name)) != std::string::npos;
  }

  Scene scene;
  BusGate gate{scene.directory(), scene.bus().address()};
  std::unique_ptr<HostProcess> host;
};

TEST_F(Identity, WhatWasSentOutsideBundlesDoesNotBelongToTheApplicationThatTheProcessBecomes) {
  const Peer other = application("Other");
  const auto peer =
      Peer::outsideBundles(scene).begin({"become", scene.hostID(), other.executable(), "stay"});
  awaitWord(*peer, "reported");
  ::kill(host->processID(), SIGSTOP);
  peer->write("\n");
  awaitWord(*peer, "staying");
  ::kill(host->processID(), SIGCONT);
  settle();
  EXPECT_EQ(reports(), 1U) << "more than the fence";
  EXPECT_FALSE(isSender("Other"));
}

TEST_F(Identity, WhatAnApplicationSentStaysItsOwnWhateverItsProcessBecomes) {
  const Peer other = application("Other");
  const auto peer =
      application("Peer").begin({"become", scene.hostID(), other.executable(), "stay"});
  awaitWord(*peer, "reported");
  ::kill(host->processID(), SIGSTOP);
  peer->write("\n");
  awaitWord(*peer, "staying");
  ::kill(host->processID(), SIGCONT);
  settle();
  EXPECT_EQ(reports(), 3U);
  EXPECT_TRUE(isSender("Peer"));
  EXPECT_FALSE(isSender("Other"));
}

TEST_F(Identity, AnApplicationWhoseBundleIsRemovedMeanwhileIsStillHeard) {
  const Peer removed = application("Removed");
  const auto peer = removed.begin({"report-twice", scene.hostID()});
  awaitWord(*peer, "reported");
  fs::remove_all(scene.directory() / "Peers/Removed.app");
  ASSERT_FALSE(fs::exists(removed.executable()));
  peer->write("\n");
  awaitWord(*peer, "reported", 1);
  settle();
  EXPECT_EQ(reports(), 3U);
}

TEST_F(Identity, ANewSenderThatBecomesAnotherProgramWhileItIsAskedForIsNoApplication) {
  const Peer other = application("Other");
  gate.hold();
  const auto peer = Peer::outsideBundles(scene).begin(
      {"report-and-become", scene.hostID(), other.executable(), "stay"});
  awaitWord(*peer, "posted");
  gate.awaitHeldAnswer();
  peer->write("\n");
  awaitWord(*peer, "staying");
  // The bus sees the end of the connection before it serves a later one.
  Peer::outsideBundles(scene).awaitOwner(scene.hostID());
  gate.release();
  settle();
  EXPECT_EQ(reports(), 1U) << "more than the fence";
  EXPECT_FALSE(isSender("Other"));
}

TEST_F(Identity, OthersAreHeardWhileASenderIsAskedFor) {
  const auto known = application("Known").begin({"report-twice", scene.hostID()});
  awaitWord(*known, "reported");
  gate.hold();
  const auto asked = application("New").begin({"count", scene.hostID(), "3"});
  gate.awaitHeldAnswer();
  known->write("\n");
  awaitWord(*known, "reported", 1);
  EXPECT_EQ(host->call("share"), "shared") << "the main thread waits";
  EXPECT_EQ(reports(), 2U);
  EXPECT_FALSE(isSender("New"));
  gate.release();
  host->call("reports 5");
  EXPECT_TRUE(isSender("New"));
}

TEST_F(Identity, MoreEventsThanCanWaitStayOnTheBusAndKeepTheirOrder) {
  gate.hold();
  constexpr std::size_t count = 500;
  const auto asked = application("New").begin({"count", scene.hostID(), std::to_string(count)});
  awaitWord(*asked, "posted");
  gate.awaitHeldAnswer();
  EXPECT_EQ(host->call("share"), "shared") << "the main thread waits";
  EXPECT_EQ(reports(), 0U);
  gate.release();
  host->call("reports " + std::to_string(count));
  host->process().waitForLog("number " + std::to_string(count - 1));
  std::vector<std::string> numbers;
  for (const std::string& line : host->process().log()) {
    const auto words = wordsOf(line);
    const auto mark = std::ranges::find(words, "number");
    if (mark != words.end()) numbers.push_back(*std::next(mark));
  }
  ASSERT_EQ(numbers.size(), count);
  for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(numbers[i], std::to_string(i));
}

TEST_F(Identity, TheLastWordsOfAnApplicationThatIsGoneAreHeard) {
  gate.hold();
  {
    const auto asked = application("New").begin({"count", scene.hostID(), "100"});
    awaitWord(*asked, "posted");
    gate.awaitHeldAnswer();
    EXPECT_EQ(reports(), 0U);
    gate.release();
    host->call("reports 1");
    ::kill(host->processID(), SIGSTOP);
    asked->closeInput();
    EXPECT_TRUE(asked->succeeds());
  }
  ::kill(host->processID(), SIGCONT);
  host->call("reports 100");
  EXPECT_TRUE(isSender("New"));
}

TEST_F(Identity, WhatIsRefusedIsAnsweredWithoutAQuestion) {
  gate.hold();
  EXPECT_EQ(
      application("Peer").run({"huge", scene.hostID(), "1", std::to_string(mostEventTexts + 1)}),
      "error org.freedesktop.DBus.Error.InvalidArgs");
}

TEST_F(Identity, MoreSendersThanAreRememberedLoseNoEvent) {
  constexpr int others = 255;  // the host remembers 256 senders
  const auto crowd = application("Crowd").begin({"crowd", scene.hostID(), std::to_string(others)});
  awaitWord(*crowd, "reported");
  gate.hold();
  const auto asked = application("New").begin({"count", scene.hostID(), "3"});
  gate.awaitHeldAnswer();
  crowd->write("\n");
  awaitWord(*crowd, "posted");
  EXPECT_EQ(host->call("share"), "shared");
  gate.release();
  host->call("reports " + std::to_string(others + 3 + 1));
  EXPECT_TRUE(isSender("New"));
}

TEST_F(Identity, ABusThatDiesWhileASenderIsAskedForIsUsedAgain) {
  for (int round = 0; round < 3; ++round) {
    gate.hold();
    const auto asked = application("New" + std::to_string(round))
                           .begin({"count", scene.hostID(), "500"});  // more than the host keeps
    awaitWord(*asked, "posted");
    gate.awaitHeldAnswer();
    // Each turn lets the host read more events, until it can keep no more.
    for (int turn = 0; turn < 200; ++turn) host->call("share");
    scene.bus().kill();
    gate.release();
    scene.bus().start();
    Peer::outsideBundles(scene).awaitOwner(scene.hostID());
  }
  // The second fence shows that no room was lost, and that the host still reads the connection.
  settle("Fence1");
  EXPECT_EQ(reports(), 1U);
  settle("Fence2");
  EXPECT_EQ(reports(), 2U);
  EXPECT_EQ(host->call("senders"),
            scene.identifier("Fence1") + ' ' + scene.identifier("Fence2") + ' ');
}

TEST_F(Identity, ALostConnectionForQuestionsIsMadeAgain) {
  gate.hold();
  const auto asked = application("New").begin({"count", scene.hostID(), "3"});
  awaitWord(*asked, "posted");
  gate.awaitHeldAnswer();
  gate.cut();
  gate.release();
  const Peer next = application("Next");
  const auto end = std::chrono::steady_clock::now() + patience;
  // The host leaves the bus and comes back. Events in between are lost.
  while (!isSender("Next") && std::chrono::steady_clock::now() < end) {
    next.awaitOwner(scene.hostID());
    (void)report(next);
  }
  EXPECT_TRUE(isSender("Next"));
}

TEST_F(Identity, AnIdentifierThatCannotBeABusNameCountsAsNone) {
  const auto report = [this](const std::string& name, const std::string& identifier) {
    const TestBundle bundle(scene.directory() / "Peers", name, {{"CFBundleIdentifier", identifier}},
                            libdbusClient());
    EXPECT_EQ(outputOf({bundle.executable(), "call", scene.hostID(), "QBHPHelperControl",
                        "checkServerOpenCallBack::::", "x", "1", "0", ""},
                       scene.environment()),
              "result \n");
  };
  const std::string longest =
      scene.identifier("L") + '.' +
      std::string(longestBundleIdentifier - scene.identifier("L").size() - 1, 'a');
  report("Longest", longest);
  report("TooLong", longest + 'a');
  report("OneElement", "OneElement");
  report("Empty", "");
  report("EmptyElement", "com..Acme");
  settle();
  EXPECT_EQ(host->call("senders"), scene.identifier("Fence") + ' ' + longest + ' ');
  EXPECT_EQ(reports(), 2U);
}

}  // namespace
}  // namespace qbdkr::test
