// Tests that events arrive whole and in order, from any thread, whatever else the process does.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "support/Peer.h"
#include "support/ProbeText.h"
#include "support/Sanitizers.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

// Runs a helper agent and a host.
struct Running : Scene {
  Running() : host(startAndShare(makeHost("Host", "1.0"))) {}

  std::string target() const { return helperID() + " Probe "; }

  std::unique_ptr<HostProcess> host;
};

TEST(Sending, TextsArriveByteForByte) {
  Running scene;
  const std::vector<std::string> texts{
      "",         " ", "a b", "line\nbreak", "\x01\x7f", "\xc3\xa4\xe2\x82\xac", "\xf0\x9f\x98\x80",
      "e\xcc\x81"};
  for (const auto& text : texts) {
    const auto word = encoded(text);
    EXPECT_EQ(scene.host->call("send " + scene.target() + "note: " + word), "0");
    EXPECT_EQ(scene.host->call("ask " + scene.target() + "echo: " + word),
              "0 " + (text.empty() ? "~" : word));
    scene.transcript().waitFor({"Probe note:", ' ' + word});
  }
}

TEST(Sending, HugeRequestsArriveWhole) {
  Running scene;
  constexpr std::size_t size = 10'000'000;
  const std::vector<std::string> huge{patternText(size, 7)};
  const std::string hugeWord = "*" + std::to_string(size) + ":7";
  EXPECT_EQ(scene.host->call("send " + scene.target() + "note: " + hugeWord), "0");
  scene.transcript().waitFor({"Probe note: from ", summary(huge)});
  EXPECT_EQ(scene.host->call("ask-summary " + scene.target() + "echo: " + hugeWord),
            "0 " + summary(huge));

  const std::vector<std::string> many = numberedTexts(100'000);
  EXPECT_EQ(scene.host->call("send " + scene.target() + "list +100000"), "0");
  scene.transcript().waitFor({"Probe list from ", summary(many)});
  EXPECT_EQ(scene.host->call("ask " + scene.target() + "summary +100000"),
            "0 " + encoded(summary(many)));
}

TEST(Sending, TextsThatCannotTravelAreRefusedAndNothingIsSent) {
  Running scene;
  scene.fence(*scene.host);
  const std::size_t before = scene.transcript().lines().size();
  for (const std::string bad :
       {"%ff", "%c3", "%eda080", "%c080", "%f4908080", "%6100", "%00",
        // Well-formed, but noncharacters: the bus library refuses both of them.
        "%efbfbf", "%efb790"}) {
    EXPECT_EQ(scene.host->call("send " + scene.target() + "note: " + bad), "-50") << bad;
    EXPECT_EQ(scene.host->call("ask " + scene.target() + "echo: " + bad), "-50 ~") << bad;
    EXPECT_EQ(scene.host->call("send " + scene.target() + "note: good " + bad), "-50") << bad;
    EXPECT_EQ(scene.host->call("send " + scene.helperID() + ' ' + bad + " note: good"), "-50");
    EXPECT_EQ(scene.host->call("send " + scene.helperID() + " Probe " + bad + " good"), "-50");
  }
  scene.fence(*scene.host);
  EXPECT_EQ(scene.transcript().lines().size(), before + 1) << "more than the fence was sent";
}

TEST(Sending, SixteenThreadsKeepTheirOrderWhileOneWaits) {
  Running scene;
  constexpr unsigned threads = 16;
  constexpr unsigned events = 200;
  const pid_t helper = scene.helperProcess();
  ::kill(helper, SIGSTOP);
  const auto waiting = scene.host->begin("ask " + scene.target() + "echo: late");
  EXPECT_EQ(scene.host->call("burst " + scene.target() + "note:: " + std::to_string(threads) + ' ' +
                             std::to_string(events)),
            "failed 0");
  EXPECT_FALSE(scene.host->hasFinished(waiting));
  ::kill(helper, SIGCONT);
  EXPECT_EQ(scene.host->finish(waiting), "0 late");
  scene.transcript().waitForCount("Probe note::", std::size_t{threads} * events);
  std::map<std::string, unsigned> next;
  for (const auto& line : scene.transcript().lines()) {
    if (line.find("Probe note::") == std::string::npos) continue;
    const auto words = wordsOf(line);
    ASSERT_EQ(words.size(), 8U) << line;
    EXPECT_EQ(words[7], std::to_string(next[words[6]]++)) << line;
  }
  EXPECT_EQ(next.size(), threads);
}

TEST(Sending, WaitingThreadsGetTheirOwnAnswers) {
  Running scene;
  std::vector<std::string> tags;
  for (int i = 0; i < 32; ++i) {
    tags.push_back(scene.host->begin("ask " + scene.target() + "echo: n" + std::to_string(i)));
  }
  for (std::size_t i = 0; i < tags.size(); ++i) {
    EXPECT_EQ(scene.host->finish(tags[i]), "0 n" + std::to_string(i));
  }
}

// More than a socket takes at once: sd-bus makes its buffers as large as the system allows. Less
// with the thread sanitizer, under which it would take half a minute.
constexpr std::size_t moreThanASocketTakes = hasThreadSanitizer ? 2'000'000 : 20'000'000;

// The receiver knows the process, which may have ended before its event is dispatched.
TEST(Sending, PostIsDispatchedThoughTheProcessEndsRightAfterIt) {
  Running scene;
  const auto peer = Peer::inBundle(scene);
  peer.awaitOwner(scene.hostID());
  const auto bundle =
      scene.makeHostWithoutHelper("Ending", {{"CFBundleIdentifier", scene.identifier("Ending")}});
  const std::string target = scene.hostID() + " QBHPHelperControl ";
  const std::string large = "*" + std::to_string(moreThanASocketTakes) + ":1";
  for (int i = 0; i < 10; ++i) {
    const auto ending = scene.start(bundle);
    EXPECT_EQ(ending->call("ask " + target + "noMethodOfIt"), "0 ~");
    const std::string mark = "last-word-" + std::to_string(i);
    const std::string message = i % 5 == 0 ? large : "small";
    ending->begin("send-and-exit " + target + "checkServerOpenCallBack:::: " + mark + " 1 0 " +
                  message);
    EXPECT_EQ(ending->process().wait(), 0);
    scene.host->process().waitForLog("checkServerOpenCallBack:::: " + mark + " 1 0 ");
  }
  EXPECT_NE(scene.host->call("senders").find(scene.identifier("Ending")), std::string::npos);
}

// This receiver takes events from the transport without asking for their sender.
TEST(Sending, PostArrivesWholeThoughTheProcessEndsRightAfterIt) {
  Running scene;
  const auto bundle = scene.makeHostWithoutHelper("Ending");
  const std::string large = " *" + std::to_string(moreThanASocketTakes) + ":1";
  for (int i = 0; i < 2; ++i) {
    const std::string mark = "last-word-" + std::to_string(i);
    const std::vector<std::string> texts{mark, patternText(moreThanASocketTakes, 1)};
    const auto ending = scene.start(bundle);
    ending->begin("send-and-exit " + scene.target() + "note: " + mark);
    EXPECT_EQ(ending->process().wait(), 0);
    scene.transcript().waitFor({"Probe note:", mark});
    const auto endingLate = scene.start(bundle);
    endingLate->begin("send-and-exit " + scene.target() + "note: " + mark + large);
    EXPECT_EQ(endingLate->process().wait(), 0);
    scene.transcript().waitFor({"Probe note:", summary(texts)});
  }
}

TEST(Sending, ReportsRunOnTheMainThreadWhileAnotherWaits) {
  Running scene;
  const auto peer = Peer::inBundle(scene);
  peer.awaitOwner(scene.hostID());
  const auto waiting = scene.host->begin("ask " + scene.target() + "wait");
  scene.transcript().waitFor({"Probe wait"});
  EXPECT_EQ(peer.run({"call", scene.hostID(), "QBHPHelperControl",
                      "checkServerOpenCallBack::::", "x", "1", "0", ""}),
            "result ");
  EXPECT_EQ(scene.host->waitForReport("server"), "! server open no-error main-thread");
  EXPECT_FALSE(scene.host->hasFinished(waiting));
  ::kill(scene.helperProcess(), SIGUSR1);
  EXPECT_EQ(scene.host->finish(waiting), "0 ~");
}

TEST(Sending, ReportsNeverRunInsideARequestOfTheMainThread) {
  Running scene;
  const auto peer = Peer::inBundle(scene);
  peer.awaitOwner(scene.hostID());
  const auto waiting = scene.host->begin("ask-on-main " + scene.target() + "wait");
  scene.transcript().waitFor({"Probe wait"});
  const auto report = peer.begin({"post", scene.hostID(), "1", "QBHPHelperControl",
                                  "checkServerOpenCallBack::::", "x", "1", "0", ""});
  report->waitForOutput([](const std::string& line) { return line == "posted"; });
  // The answer for another thread comes after the report.
  EXPECT_EQ(scene.host->call("ask " + scene.identifier("Nobody") + " Probe echo: x"), "-600 ~");
  EXPECT_EQ(scene.host->reportsWith("server"), 0U);
  ::kill(scene.helperProcess(), SIGUSR1);
  EXPECT_EQ(scene.host->finish(waiting), "0 ~");
  EXPECT_EQ(scene.host->waitForReport("server"), "! server open no-error main-thread");
  report->closeInput();
  EXPECT_TRUE(report->succeeds());
}

TEST(Sending, ForkedChildPostsAtOnceWhileAThreadOfItsParentWaits) {
  if (hasSanitizer) GTEST_SKIP() << "a sanitizer's own locks stay taken in the child";
  Running scene;
  const auto waiting = scene.host->begin("ask " + scene.target() + "wait");
  scene.transcript().waitFor({"Probe wait"});
  constexpr std::chrono::seconds atOnce(4);  // less than the 5 s of a wait for the bus
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(scene.host->call("fork-send " + scene.target() + "note: child", atOnce), "status 0");
  }
  EXPECT_FALSE(scene.host->hasFinished(waiting));
  ::kill(scene.helperProcess(), SIGUSR1);
  EXPECT_EQ(scene.host->finish(waiting), "0 ~");
  EXPECT_EQ(scene.host->call("ask " + scene.target() + "echo: parent"), "0 parent");
  // The receiver asks the bus for the identity of each child, and may answer the parent first.
  scene.transcript().waitForCount("Probe note: from ", 5);
}

}  // namespace
}  // namespace qbdkr::test
