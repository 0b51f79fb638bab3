// Makes requests with deadlines and cancellations, while the helper agent is stopped, dies or
// answers, and while the bus is stuck or missing.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/Patience.h"
#include "support/Peer.h"
#include "support/ProbeText.h"
#include "support/ResourceUse.h"
#include "support/Sanitizers.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

// One host and its helper agent.
struct Asking : Scene {
  explicit Asking(const std::map<std::string, std::string>& variables = {}) {
    for (const auto& [name, value] : variables) environment()[name] = value;
    host = startAndShare(makeHost("Host", "1.0"));
  }

  [[nodiscard]] std::string event(const std::string& words) const {
    return ' ' + helperID() + " Probe " + words;
  }

  void stopHelper() const { ::kill(helperProcess(), SIGSTOP); }

  std::unique_ptr<HostProcess> host;
};

// A host without a helper agent, and the daemon of its bus.
struct OnAStuckBus : Scene {
  OnAStuckBus() : host(start(makeHostWithoutHelper("Host"))) {
    ::kill(bus().daemonProcess(), SIGSTOP);
  }

  [[nodiscard]] std::string event() const { return ' ' + helperID() + " Probe echo: x"; }

  std::unique_ptr<HostProcess> host;
};

// The last word of an answer: a time in microseconds.
long timeOf(const std::string& answer) { return std::stol(answer.substr(answer.rfind(' ') + 1)); }

std::string withoutTime(const std::string& answer) { return answer.substr(0, answer.rfind(' ')); }

constexpr long millisecond = 1000;
constexpr long second = 1'000'000;

TEST(LimitedRequest, EndsAtItsDeadlineWhileTheHelperAgentIsStopped) {
  Asking scene;
  scene.stopHelper();
  const auto answer = scene.host->call("wait-within 200" + scene.event("echo: x"));
  EXPECT_EQ(withoutTime(answer), "-1712 ~");
  EXPECT_GE(timeOf(answer), 200 * millisecond);
  EXPECT_LE(timeOf(answer), 5 * second);
  const auto started = scene.host->call("start-on main 200" + scene.event("echo: x"));
  EXPECT_EQ(withoutTime(started), "-1712 ~ main-thread outside");
}

TEST(LimitedRequest, LateReplyIsDroppedAndTheNextRequestGetsItsOwn) {
  Asking scene;
  scene.stopHelper();
  for (int i = 0; i < 5; ++i) {  // each long enough to be sent
    EXPECT_EQ(withoutTime(scene.host->call("wait-within 300" + scene.event("echo: late"))),
              "-1712 ~");
  }
  ::kill(scene.helperProcess(), SIGCONT);
  EXPECT_EQ(withoutTime(scene.host->call("wait-within 60000" + scene.event("echo: mine"))),
            "0 mine");
  EXPECT_EQ(scene.host->call("ask" + scene.event("echo: old")), "0 old");
  EXPECT_EQ(scene.transcript().count("Probe echo: from"), 7U);
}

TEST(LimitedRequest, OneThatHasPassedItsLimitsIsNotSent) {
  Asking scene;
  EXPECT_EQ(withoutTime(scene.host->call("wait-within 0" + scene.event("note: passed"))),
            "-1712 ~");
  EXPECT_EQ(withoutTime(scene.host->call("wait-within -5" + scene.event("note: passed"))),
            "-1712 ~");
  scene.host->call("cancel before");
  EXPECT_EQ(withoutTime(scene.host->call("wait-named before" + scene.event("note: passed"))),
            "-128 ~");
  EXPECT_EQ(withoutTime(scene.host->call("start-on inline 0" + scene.event("note: passed"))),
            "-1712 ~ other-thread outside");
  scene.fence(*scene.host);
  EXPECT_EQ(scene.transcript().count("note: "), 0U);
}

TEST(LimitedRequest, CancellingFromAnotherThreadEndsAWaitAtOnce) {
  Asking scene;
  const auto waiting = scene.host->begin("wait-named it" + scene.event("wait"));
  scene.transcript().waitFor({"Probe wait"});
  const auto unlimited = scene.host->begin("ask" + scene.event("echo: unlimited"));
  EXPECT_FALSE(scene.host->hasFinished(waiting));
  EXPECT_LE(timeOf("took " + scene.host->call("cancel it")), second);
  EXPECT_EQ(withoutTime(scene.host->finish(waiting, soon)), "-128 ~");
  scene.host->call("cancel it");  // after the end
  EXPECT_FALSE(scene.host->hasFinished(unlimited)) << "another request was cancelled";
  ::kill(scene.helperProcess(), SIGUSR1);
  EXPECT_EQ(scene.host->finish(unlimited), "0 unlimited");
}

TEST(LimitedRequest, DeathOfTheHelperAgentEndsItAtOnce) {
  Asking scene;
  const auto waiting = scene.host->begin("wait-within 60000" + scene.event("wait"));
  scene.transcript().waitFor({"Probe wait"});
  scene.killHelper(*scene.host);
  EXPECT_EQ(withoutTime(scene.host->finish(waiting, soon)), "-609 ~");
  EXPECT_EQ(scene.host->call("launch"), "yes");
  const auto started = scene.host->begin("start-on main 60000" + scene.event("wait"));
  scene.transcript().waitForCount("Probe wait", 2);
  scene.killHelper(*scene.host);
  EXPECT_EQ(withoutTime(scene.host->finish(started, soon)), "-609 ~ main-thread outside");
  EXPECT_EQ(withoutTime(scene.host->call("wait-within 60000" + scene.event("wait"))), "-600 ~");
}

TEST(LimitedRequest, DeathOfTheBusEndsItAtOnceAndTheNextBusIsUsed) {
  Asking scene(std::map<std::string, std::string>{{"QBDKR_DIRECT", "0"}});
  const auto waiting = scene.host->begin("wait-within 60000" + scene.event("wait"));
  scene.transcript().waitFor({"Probe wait"});
  scene.bus().kill();
  EXPECT_EQ(withoutTime(scene.host->finish(waiting, soon)), "-609 ~");
  EXPECT_EQ(withoutTime(scene.host->call("wait-within 60000" + scene.event("echo: x"), soon)),
            "-609 ~");
  EXPECT_EQ(withoutTime(scene.host->call("start-on main -" + scene.event("echo: x"), soon)),
            "-609 ~ main-thread outside");
  scene.bus().start();
  EXPECT_EQ(withoutTime(scene.host->call("wait-within 60000 " + scene.identifier("Nobody") +
                                         " Probe echo: x")),
            "-600 ~");
}

TEST(LimitedRequest, StuckBusHoldsUpNeitherTheCallNorTheDeadline) {
  OnAStuckBus scene;
  const auto started = scene.host->call("start-on main 300" + scene.event());
  EXPECT_EQ(withoutTime(started), "-1712 ~ main-thread outside");
  EXPECT_LE(timeOf(started), 100 * millisecond) << "the call waited for the bus";
  const auto waited = scene.host->call("wait-within 300" + scene.event());
  EXPECT_EQ(withoutTime(waited), "-1712 ~");
  EXPECT_LE(timeOf(waited), 4 * second);
  // Without a deadline the bus gets the time that it always gets.
  EXPECT_EQ(withoutTime(scene.host->call("start-on main -" + scene.event(), soon)),
            "-609 ~ main-thread outside");
  ::kill(scene.bus().daemonProcess(), SIGCONT);
  EXPECT_EQ(withoutTime(scene.host->call("start-on main -" + scene.event(), soon)),
            "-600 ~ main-thread outside");
}

TEST(LimitedRequest, BusThatStopsLaterHoldsUpNeitherTheCallNorTheDeadline) {
  Asking scene(std::map<std::string, std::string>{{"QBDKR_DIRECT", "0"}});
  EXPECT_EQ(withoutTime(scene.host->call("start-on main -" + scene.event("echo: x"))),
            "0 x main-thread outside");
  ::kill(scene.bus().daemonProcess(), SIGSTOP);
  const auto started = scene.host->call("start-on main 300" + scene.event("echo: x"));
  EXPECT_EQ(withoutTime(started), "-1712 ~ main-thread outside");
  EXPECT_LE(timeOf(started), 100 * millisecond) << "the call waited for the bus";
  ::kill(scene.bus().daemonProcess(), SIGCONT);
  EXPECT_EQ(withoutTime(scene.host->call("start-on main -" + scene.event("echo: y"))),
            "0 y main-thread outside");
}

TEST(LimitedRequest, CompletionComesWhereItWasAskedFor) {
  Asking scene;
  for (const std::string place : {"main", "throwing"}) {
    EXPECT_EQ(withoutTime(scene.host->call("start-on " + place + " -" + scene.event("echo: x"))),
              "0 x main-thread outside");
  }
  for (const std::string place : {"thread", "inline"}) {
    EXPECT_EQ(withoutTime(scene.host->call("start-on " + place + " -" + scene.event("echo: x"))),
              "0 x other-thread outside");
  }
}

TEST(LimitedRequest, RefusedRequestIsCompletedToo) {
  Asking scene;
  EXPECT_EQ(withoutTime(scene.host->call("start-on inline -" + scene.event("echo: %ff"))),
            "-50 ~ other-thread outside");
  EXPECT_EQ(withoutTime(scene.host->call("start-on main - % Probe echo: x")),
            "-600 ~ main-thread outside");
  EXPECT_EQ(withoutTime(scene.host->call("wait-within 1000 Nodot Probe echo: x")), "-50 ~");
}

// The main thread, the one that reads commands, the one of the command, the one of the requests,
// perhaps one that is about to end, and the thread sanitizer's own.
constexpr long mostThreads = hasThreadSanitizer ? 6 : 5;

TEST(LimitedRequest, TenThousandThatWaitTakeOneThreadAndEndOnceEach) {
  Asking scene;
  scene.stopHelper();
  const auto outcome = scene.host->call("start-many 10000" + scene.event("echo: x"), longPatience);
  EXPECT_TRUE(outcome.starts_with("early=0 twice=0 -128=10000 us=")) << outcome;
  EXPECT_LE(std::stol(outcome.substr(outcome.rfind('=') + 1)), mostThreads) << outcome;
}

// The second host sends for the first time, and has to ask the bus which process the target is: the
// post that follows the first request must wait for that.
TEST(LimitedRequest, RequestsAndPostsOfAThreadAreSentInTheOrderOfTheirCalls) {
  Asking scene;
  constexpr unsigned count = 1000;
  const auto bundle =
      scene.makeHostWithoutHelper("Other", {{"Helper must be installed copy", "1"}});
  for (int round = 0; round < 10; ++round) {
    const auto other = scene.start(bundle);
    EXPECT_EQ(other->call("start-in-turn 10" + scene.event("first:")), "twice=0 0=10");
    other->quit();
  }
  unsigned first = 0;
  scene.transcript().waitForCount("Probe first:", 100);
  for (const auto& line : scene.transcript().lines()) {
    if (line.find("Probe first:") == std::string::npos) continue;
    ASSERT_EQ(wordsOf(line).back(), std::to_string(first++ % 10)) << line;
  }
  EXPECT_EQ(scene.host->call("start-in-turn " + std::to_string(count) + scene.event("note:"),
                             longPatience),
            "twice=0 0=" + std::to_string(count));
  scene.transcript().waitForCount("Probe note:", count);
  unsigned next = 0;
  for (const auto& line : scene.transcript().lines()) {
    if (line.find("Probe note:") == std::string::npos) continue;
    ASSERT_EQ(wordsOf(line).back(), std::to_string(next++)) << line;
  }
  EXPECT_EQ(next, count);
}

TEST(LimitedRequest, CancellingWhileAnswersComeEndsEachOnceAndLeavesNoMemory) {
  Asking scene;
  constexpr unsigned count = hasSanitizer ? 4000 : 20'000;
  const auto outcome = scene.host->call(
      "cancel-many " + std::to_string(count) + scene.event("echo: x"), longPatience);
  EXPECT_TRUE(outcome.starts_with("twice=0 -128=")) << outcome;
  const auto growth = std::stol(outcome.substr(outcome.rfind('=') + 1));
  if (!hasSanitizer) {
    EXPECT_LE(growth, 4000) << outcome;
  }
  EXPECT_EQ(scene.host->call("ask" + scene.event("echo: after")), "0 after");
}

// The completions of the host so far, and the bytes on its heap.
std::pair<unsigned long, long> resourcesOf(HostProcess& host) {
  const auto words = wordsOf(host.call("resources"));
  return {std::stoul(words.at(0)), std::stol(words.at(1))};
}

// The helper agent is stopped in each round, so that no request is answered before it ends, and
// answers all of them afterwards, in vain.
TEST(LimitedRequest, HundredThousandThatEndInManyWaysLeaveNothing) {
  constexpr unsigned perRound = 2000;
  constexpr unsigned rounds = hasThreadSanitizer ? 10 : 50;
  constexpr unsigned warmRounds = 5;
  Asking scene;
  const ResourceUse use(scene.host->processID());
  const pid_t helper = scene.helperProcess();
  long warmMemory = 0;
  std::size_t warmDescriptors = 0;
  for (unsigned round = 1; round <= rounds; ++round) {
    ::kill(helper, SIGSTOP);
    ASSERT_EQ(scene.host->call("end-mixed " + std::to_string(perRound) + scene.event("echo: x"),
                               longPatience),
              "wrong=0 twice=0 -1712=500 -128=1500");
    ::kill(helper, SIGCONT);
    scene.fence(*scene.host);
    if (round != warmRounds) continue;
    warmMemory = resourcesOf(*scene.host).second;
    warmDescriptors = use.descriptors();
  }
  const auto [completions, memory] = resourcesOf(*scene.host);
  EXPECT_EQ(completions, rounds * perRound);
  constexpr long mostGrowth = 8L * rounds * perRound;  // less than any allocation for each request
  EXPECT_LT(memory - warmMemory, mostGrowth);
  EXPECT_LE(use.descriptors(), warmDescriptors);
  use.expectModest();
  // The threads of the last commands may take a moment to end.
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (use.threads() > static_cast<std::size_t>(mostThreads)) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << use.threads() << " threads";
  }
  scene.host->quit();  // a leak sanitizer makes it fail
}

TEST(LimitedRequest, ForkedChildHasNoneOfTheParentsRequests) {
  if (hasSanitizer) GTEST_SKIP() << "a sanitizer's own locks stay taken in the child";
  Asking scene;
  scene.stopHelper();
  EXPECT_EQ(scene.host->call("fork-with-pending 100" + scene.event("echo: x")),
            "posted 0 waited -1712 completed 0 ended 0 early 0 twice=0 -128=100");
}

TEST(LimitedRequest, CoroutineResumesOnTheMainThreadAndOnAnExecutor) {
  Asking scene;
  EXPECT_EQ(scene.host->call("await 60000" + scene.event("echo: x")), "0 x main-thread 0 x");
  scene.stopHelper();
  EXPECT_EQ(scene.host->call("await 50" + scene.event("echo: x")), "-1712 ~ main-thread -1712 ~");
}

TEST(LimitedRequest, GoesToTheInstalledCopyAloneIfTheHostSaysSo) {
  Scene scene;
  const auto host =
      scene.startAndShare(scene.makeHost("Host", "1.0", {{"Helper must be installed copy", "1"}}));
  const std::string event = ' ' + scene.helperID() + " Probe echo: x";
  EXPECT_EQ(withoutTime(host->call("start-on main -" + event)), "0 x main-thread outside");
  EXPECT_EQ(host->call("start-in-turn 300 " + scene.helperID() + " Probe note:"), "twice=0 0=300");
  scene.killHelper(*host);
  EXPECT_EQ(withoutTime(host->call("start-on main -" + event)), "-600 ~ main-thread outside");
  const auto impostor = Peer::inBundle(scene).begin({"serve", scene.helperID(), "1"});
  impostor->waitForOutput([](const std::string& line) { return line == "ready"; });
  EXPECT_EQ(withoutTime(host->call("start-on main -" + event)), "-1743 ~ main-thread outside");
  EXPECT_EQ(withoutTime(host->call("wait-within 60000" + event)), "-1743 ~");
}

}  // namespace
}  // namespace qbdkr::test
