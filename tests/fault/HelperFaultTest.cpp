// Tests a helper agent that is killed, stopped, slow, missing, or never starts up.

#include <gtest/gtest.h>
#include <signal.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <system_error>

#include "support/Patience.h"
#include "support/Peer.h"
#include "support/ProcessEnd.h"
#include "support/Programs.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// Less than the 25 s for which the bus library waits by itself.

// Waits for the end of a process, which may have ended already.
void waitForEnd(pid_t process) {
  try {
    ASSERT_TRUE(ProcessEnd(process).comesWithin(patience));
  } catch (const std::system_error& error) {
    ASSERT_EQ(error.code().value(), ESRCH);
  }
}

TEST(HelperFault, DeathEndsAWaitingRequestAtOnce) {
  Scene scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const auto waiting = host->begin("ask " + scene.helperID() + " Probe wait");
  scene.transcript().waitFor({"Probe wait"});
  scene.killHelper(*host);
  EXPECT_EQ(host->finish(waiting, soon), "-609 ~");
  EXPECT_EQ(host->call("alive"), "-600");
}

TEST(HelperFault, DeathDuringTheStartUpLeavesTheHostUsable) {
  Scene scene;
  scene.environment()["QBDKR_PROBE_MODE"] = "mute";
  const auto host = scene.start(scene.makeHost("Host", "1.0"));
  host->call("share");
  scene.transcript().waitFor({"clientIDFormHelper"});
  scene.killHelper(*host);
  // The start-up thread goes on and does its bookkeeping. A check launches.
  const auto check = host->begin("restart");
  scene.transcript().waitForCount("clientIDFormHelper", 2);
  ::kill(scene.helperProcess(), SIGUSR1);
  EXPECT_EQ(host->finish(check), "0");
  EXPECT_EQ(host->call("client"), "client-" + std::to_string(scene.helperProcess()));
}

TEST(HelperFault, StoppedHelperTakesPostsAndAnswersWhenItContinues) {
  Scene scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const pid_t helper = scene.helperProcess();
  ::kill(helper, SIGSTOP);
  const auto waiting = host->begin("ask " + scene.helperID() + " Probe echo: awake");
  EXPECT_EQ(host->call("burst " + scene.helperID() + " Probe note:: 1 20000"), "failed 0");
  EXPECT_EQ(host->call("alive", soon), "0");
  EXPECT_EQ(host->call("stop-status", soon), "0");
  EXPECT_FALSE(host->hasFinished(waiting));
  ::kill(helper, SIGCONT);
  EXPECT_EQ(host->finish(waiting), "0 awake");
  scene.transcript().waitForCount("Probe note::", 20000, longPatience);
}

TEST(HelperFault, HelperThatEndsBeforeItCheckedInWasNotLaunched) {
  Scene scene;
  scene.environment()["QBDKR_PROBE_MODE"] = "exit-at-once";
  const auto host = scene.start(scene.makeHost("Host", "1.0"));
  host->call("share");
  // Waits for its end: until then it counts as running.
  waitForEnd(std::stoi(scene.transcript().waitFor({" started version"})));
  EXPECT_EQ(host->call("launch", soon), "no");
  // The start-up thread may have been opening the bundle still, and have launched for both.
  const auto launches = scene.transcript().count(" started version");
  EXPECT_EQ(host->call("launch", soon), "no");
  EXPECT_EQ(host->call("restart", soon), "1");
  EXPECT_EQ(scene.transcript().count(" started version"), launches + 2);
  EXPECT_EQ(scene.transcript().count(" call "), 0U);
}

TEST(HelperFault, HelperThatEndsFiveTimesIsNotLaunchedForAWhileAndTheHostCanAskWhy) {
  Scene scene;
  scene.environment()["QBDKR_PROBE_MODE"] = "exit-for-now";
  const auto host = scene.start(scene.makeHost("Host", "1.0"));
  host->call("share");
  const auto begin = Clock::now();
  while (host->call("is-paused") == "no") {
    EXPECT_EQ(host->call("launch", soon), "no");
    ASSERT_LT(Clock::now() - begin, patience);
  }
  EXPECT_EQ(scene.transcript().count(" started version"), 5U);
  writeFile(scene.transcript().path().string() + ".settled", "");
  EXPECT_EQ(host->call("launch", soon), "no");
  EXPECT_EQ(scene.transcript().count(" started version"), 5U);
  while (host->call("is-paused") == "yes") ASSERT_LT(Clock::now() - begin, patience);
  EXPECT_EQ(host->call("launch"), "yes");
  EXPECT_EQ(scene.transcript().count(" started version"), 6U);
}

TEST(HelperFault, MissingExecutableIsNotLaunched) {
  Scene scene;
  const auto bundle = scene.makeHost("Host", "1.0");
  fs::remove_all(bundle.resources() / "ProbeHelper.app/Contents/Linux");
  const auto host = scene.start(bundle);
  host->call("share");
  EXPECT_EQ(host->call("launch", soon), "no");
  EXPECT_EQ(host->call("restart", soon), "1");
  EXPECT_TRUE(fs::exists(scene.installedHelper()));
}

TEST(HelperFault, FileThatIsNoProgramIsNotLaunched) {
  Scene scene;
  const auto bundle = scene.makeHost("Host", "1.0");
  const auto executable =
      bundle.resources() / "ProbeHelper.app/Contents/Linux" / helperProbe().filename();
  fs::remove(executable);  // may be a link to the one of the build
  writeFile(executable, "no program\n");
  const auto host = scene.start(bundle);
  host->call("share");
  EXPECT_EQ(host->call("launch", soon), "no") << "without the permission to execute it";
  fs::permissions(scene.installedHelper() / "Contents/Linux" / helperProbe().filename(),
                  fs::perms::owner_all);
  EXPECT_EQ(host->call("launch", soon), "no") << "with it";
}

TEST(HelperFault, HelperThatNeverChecksInCountsAsLaunchedAfterTenSeconds) {
  Scene scene;
  scene.environment()["QBDKR_PROBE_MODE"] = "never-check-in";
  const auto host = scene.start(scene.makeHost("Host", "1.0"));
  const auto before = Clock::now();
  host->call("share");
  scene.transcript().waitFor({" started version"});
  // Waits for the start-up thread, which is opening the helper agent.
  EXPECT_EQ(host->call("open " + scene.installedHelper().string()), "yes");
  const auto time = Clock::now() - before;
  EXPECT_GE(time, std::chrono::seconds(10));
  EXPECT_LE(time, std::chrono::seconds(19)) << "waited for twice";
  EXPECT_EQ(host->call("alive", soon), "-600");
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
  EXPECT_GT(scene.helperProcess(), 0);
}

TEST(HelperFault, LaunchedHelperIsNoChildAndOutlivesTheHost) {
  Scene scene;
  auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const pid_t helper = scene.helperProcess();
  const std::string stat = readFile("/proc/" + std::to_string(helper) + "/stat");
  const auto parent = std::stoi(stat.substr(stat.rfind(')') + 4));
  EXPECT_NE(parent, host->processID());
  const ProcessEnd end(helper);
  const auto peer = Peer::inBundle(scene);
  peer.awaitOwner(scene.hostID());
  host.reset();  // killed
  // The bus answers that the name has no owner: it has told all that watched the host.
  EXPECT_TRUE(peer.run({"call", scene.hostID(), "Probe", "echo:", "x"}).starts_with("error "));
  EXPECT_EQ(peer.run({"call", scene.helperID(), "Probe", "echo:", "here"}), "result here");
  EXPECT_FALSE(end.hasCome());
  for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(helper) + "/fd")) {
    std::error_code gone;
    const auto target = fs::read_symlink(entry.path(), gone).string();
    EXPECT_FALSE(target.starts_with("pipe:") && std::stoi(entry.path().filename()) < 3)
        << "it holds a stream of the host: " << target;
  }
}

}  // namespace
}  // namespace qbdkr::test
