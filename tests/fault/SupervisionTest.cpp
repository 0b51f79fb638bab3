// Supervises a helper agent that is killed, crashes over and over, stops, is replaced or damaged.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>

#include "support/ChildProcess.h"
#include "support/Patience.h"
#include "support/ProcessEnd.h"
#include "support/Sanitizers.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

const InfoKeys supervised{{"Helper is supervised", "1"}};

class Supervision : public testing::Test {
 protected:
  // Waits for that many starts of the helper agent and start requests to it, for less than the 60 s
  // after which every host checks.
  void awaitStarts(std::size_t count) {
    scene.transcript().waitForCount(" started version", count, soon);
    scene.transcript().waitForCount("start:prodeuctVersion:", count, soon);
  }
  std::size_t starts() { return scene.transcript().count(" started version"); }

  Scene scene;
};

TEST_F(Supervision, KilledHelperIsBackAtOnce) {
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0", supervised));
  ::kill(scene.helperProcess(), SIGKILL);
  awaitStarts(2);
  EXPECT_EQ(host->call("alive"), "0");
}

TEST_F(Supervision, HelperThatWasLostWithoutABusIsBackWhenTheBusIs) {
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0", supervised));
  scene.fence(*host);
  scene.bus().kill();
  EXPECT_EQ(host->call("restart"), "0");  // the check after the loss of the bus is over as well
  const ProcessEnd end(scene.helperProcess());
  ::kill(scene.helperProcess(), SIGKILL);
  ASSERT_TRUE(end.comesWithin(patience));
  scene.bus().start();
  awaitStarts(2);
}

TEST_F(Supervision, BeginsWithTheCallToo) {
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("supervise 0"), "yes");
  EXPECT_EQ(host->call("supervise 0"), "yes");
  scene.fence(*host);
  ::kill(scene.helperProcess(), SIGKILL);
  awaitStarts(2);
}

TEST_F(Supervision, IsOffByDefault) {
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  scene.killHelper(*host);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(host->call("alive"), "-600");
  EXPECT_EQ(starts(), 1U);
}

TEST_F(Supervision, OfNoHelperFails) {
  const auto host =
      scene.start(scene.makeHostWithoutHelper("Host", {{"Helper Bundle indentifiter", ""}}));
  EXPECT_EQ(host->call("supervise 0"), "no");
}

TEST_F(Supervision, LeavesAServerAloneThatIsSwitchedOff) {
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0", supervised));
  writeFile(scene.home().preferencesFile(scene.helperID()),
            "<plist version=\"1.0\"><dict><key>QBHPServerClosed</key><true/></dict></plist>");
  scene.killHelper(*host);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(host->call("restart"), "10");
  EXPECT_EQ(starts(), 1U);
}

TEST_F(Supervision, HelperThatCrashesOverAndOverIsStartedLessAndLessOften) {
  scene.environment()["QBDKR_PROBE_MODE"] = "exit-for-now";
  const auto host = scene.start(scene.makeHost("Host", "1.0", supervised));
  const auto begin = Clock::now();
  host->call("share");
  // Two at first, the second after a repair; one for each of four more failures; one after 1 s.
  scene.transcript().waitForCount(" started version", 7);
  EXPECT_GE(Clock::now() - begin, std::chrono::seconds(1));
  EXPECT_LE(starts(), 8U);
  while (host->call("is-paused") == "no") {
    ASSERT_LT(Clock::now() - begin, patience);
  }
  writeFile(scene.transcript().path().string() + ".settled", "");
  scene.transcript().waitFor({"start:prodeuctVersion:"});
  EXPECT_EQ(host->call("is-paused"), "no");
}

TEST_F(Supervision, KillsOneAfterTheOtherAreDampedToo) {
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0", supervised));
  const auto begin = Clock::now();
  for (std::size_t kills = 1; kills <= 6; ++kills) {
    while (host->call("alive") != "0") {
      ASSERT_LT(Clock::now() - begin, patience);
    }
    ::kill(scene.helperProcess(), SIGKILL);
    awaitStarts(kills + 1);
  }
  EXPECT_GE(Clock::now() - begin, std::chrono::seconds(1));
}

TEST_F(Supervision, StubbornHelperIsReplacedByAnUpgradeWithinFiveSeconds) {
  scene.environment()["QBDKR_PROBE_MODE"] = "stubborn-to-the-end";
  scene.startAndShare(scene.makeHost("OldHost", "1.0"))->quit();
  scene.environment()["QBDKR_PROBE_MODE"] = "";
  const auto host = scene.start(scene.makeHost("NewHost", "1.1", supervised));
  const auto begin = Clock::now();
  host->call("share");
  scene.transcript().waitFor({" started version 1.1"});
  scene.transcript().waitForCount("start:prodeuctVersion:", 2);
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(hasSanitizer ? 20 : 5));
}

TEST_F(Supervision, UpgradeSendsTheNewHelperOneStartRequest) {
  scene.startAndShare(scene.makeHost("OldHost", "1.0"))->quit();
  const auto host = scene.start(scene.makeHost("NewHost", "1.1", supervised));
  host->call("share");
  scene.transcript().waitFor({" started version 1.1"});
  // The check that makes up for the loss of the old one ends the start-up.
  scene.transcript().waitFor({"isAlive:prodeuctVersion:"});
  scene.fence(*host);
  EXPECT_EQ(scene.transcript().count("start:prodeuctVersion:"), 2U);
}

TEST_F(Supervision, HelperWhoseFilesWereReplacedIsEnded) {
  scene.environment()["QBDKR_PROBE_MODE"] = "stubborn";
  const auto oldHost = scene.startAndShare(scene.makeHost("OldHost", "1.0"));
  const ProcessEnd oldHelper(scene.helperProcess());
  const auto other = scene.start(scene.makeHost("NewHost", "1.1"));
  other->call("extract");  // without supervision
  EXPECT_FALSE(oldHelper.comesWithin(std::chrono::seconds(0)));
  EXPECT_EQ(oldHost->call("supervise 0"), "yes");
  oldHost->call("auto-restart");
  scene.transcript().waitFor({" started version 1.1"});
  EXPECT_TRUE(oldHelper.comesWithin(std::chrono::seconds(0)));
}

TEST_F(Supervision, WorkerOfTheReplacedBundleIsNotEnded) {
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0", supervised));
  const auto worker = scene.installedHelper() / "Contents/Linux/worker";
  fs::copy_file("/bin/sleep", worker);
  ChildProcess working({worker.string(), "60"}, scene.options());
  const auto newHost = scene.start(scene.makeHost("NewHost", "1.1", supervised));
  newHost->call("share");
  scene.transcript().waitFor({" started version 1.1"});
  EXPECT_FALSE(ProcessEnd(working.processID()).comesWithin(std::chrono::seconds(0)));
}

TEST_F(Supervision, StoppedHelperIsEndedAndStartedAgain) {
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("supervise 300"), "yes");
  scene.fence(*host);
  const pid_t helper = scene.helperProcess();
  const ProcessEnd end(helper);
  ::kill(helper, SIGSTOP);
  EXPECT_TRUE(end.comesWithin(patience));
  awaitStarts(2);
}

TEST_F(Supervision, ShortStopsAreNoReasonToStartAnother) {
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("supervise 60000"), "yes");
  const pid_t helper = scene.helperProcess();
  for (int i = 0; i < 100; ++i) {
    ::kill(helper, SIGSTOP);
    EXPECT_EQ(host->call("auto-restart"), "0");
    ::kill(helper, SIGCONT);
  }
  scene.fence(*host);
  EXPECT_EQ(scene.helperProcess(), helper);
  EXPECT_EQ(starts(), 1U);
}

// --- Installed copies that cannot be opened

struct Damage {
  const char* name;
  std::function<void(const fs::path& bundle)> harm;
};

fs::path executableOf(const fs::path& bundle) { return bundle / "Contents/Linux/HelperProbe"; }

void replaceExecutable(const fs::path& bundle, const std::string& contents) {
  fs::remove(executableOf(bundle));
  writeFile(executableOf(bundle), contents);
  fs::permissions(executableOf(bundle), fs::perms(0755));
}

const Damage damages[] = {
    {"MissingExecutable", [](const fs::path& bundle) { fs::remove(executableOf(bundle)); }},
    {"EmptyExecutable", [](const fs::path& bundle) { replaceExecutable(bundle, ""); }},
    {"ExecutableThatIsNone",
     [](const fs::path& bundle) { replaceExecutable(bundle, "no program"); }},
    {"ExecutableThatMayNotBeExecuted",
     [](const fs::path& bundle) {
       const std::string contents = readFile(executableOf(bundle));
       replaceExecutable(bundle, contents);
       fs::permissions(executableOf(bundle), fs::perms(0644));
     }},
    {"CutExecutable",
     [](const fs::path& bundle) {
       const std::string contents = readFile(executableOf(bundle));
       replaceExecutable(bundle, contents.substr(0, contents.size() / 100));
     }},
    {"ExecutableOfAMissingInterpreter",
     [](const fs::path& bundle) { replaceExecutable(bundle, "#!/no/such/interpreter\n"); }},
    {"DirectoryAsExecutable",
     [](const fs::path& bundle) {
       fs::remove(executableOf(bundle));
       fs::create_directory(executableOf(bundle));
     }},
    {"LinkThatLeadsNowhere",
     [](const fs::path& bundle) {
       fs::remove(executableOf(bundle));
       fs::create_symlink("nowhere", executableOf(bundle));
     }},
    {"ExecutableThatEndsAtOnceForWantOfALibrary",
     [](const fs::path& bundle) { replaceExecutable(bundle, "#!/bin/sh\nexit 127\n"); }},
    {"MissingFolderOfPrograms",
     [](const fs::path& bundle) { fs::remove_all(bundle / "Contents/Linux"); }},
};

void PrintTo(const Damage& damage, std::ostream* stream) { *stream << damage.name; }

class DamagedCopy : public testing::TestWithParam<Damage> {
 protected:
  Scene scene;
};

TEST_P(DamagedCopy, IsReplacedUnderSupervision) {
  const auto bundle = scene.makeHost("Host", "1.0", supervised);
  const auto helper = scene.makeHelper("1.0", scene.installDirectory());
  GetParam().harm(helper.path());
  const auto host = scene.startAndShare(bundle);
  EXPECT_EQ(treeDigest(scene.installedHelper()),
            treeDigest(bundle.resources() / "ProbeHelper.app"));
  EXPECT_EQ(scene.stagingLeftovers(), std::vector<std::string>());
}

TEST_P(DamagedCopy, IsKeptWithoutIt) {
  const auto bundle = scene.makeHost("Host", "1.0");
  const auto helper = scene.makeHelper("1.0", scene.installDirectory());
  GetParam().harm(helper.path());
  const auto before = treeDigest(helper.path());
  const auto host = scene.start(bundle);
  host->call("extract");
  EXPECT_EQ(host->call("launch"), "no");
  EXPECT_EQ(treeDigest(helper.path()), before);
  host->process().waitForLog("helper in conetent's version is lower");
}

TEST_P(DamagedCopy, IsReplacedByANewerVersionWithoutIt) {
  const auto bundle = scene.makeHost("Host", "1.1");
  const auto helper = scene.makeHelper("1.0", scene.installDirectory());
  GetParam().harm(helper.path());
  const auto host = scene.startAndShare(bundle);
  EXPECT_EQ(treeDigest(scene.installedHelper()),
            treeDigest(bundle.resources() / "ProbeHelper.app"));
  EXPECT_EQ(host->process().logLinesWith("helper version = 1.1"), 1U);
  EXPECT_EQ(scene.stagingLeftovers(), std::vector<std::string>());
}

INSTANTIATE_TEST_SUITE_P(All, DamagedCopy, testing::ValuesIn(damages),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(Supervision, CopyIsReplacedOncePerVersion) {
  const auto bundle = scene.makeHost("Host", "1.0", supervised);
  replaceExecutable(bundle.resources() / "ProbeHelper.app", "no program");
  const auto host = scene.start(bundle);
  host->call("extract");
  EXPECT_EQ(host->call("launch"), "no");
  writeFile(scene.installedHelper() / "mark", "");
  EXPECT_EQ(host->call("launch"), "no");
  EXPECT_TRUE(fs::exists(scene.installedHelper() / "mark"));
}

// It may be whole: a helper agent that is killed while it starts cannot be opened either.
TEST_F(Supervision, NewerCopyThanThatOfTheHostIsKept) {
  scene.environment()["QBDKR_PROBE_MODE"] = "exit-at-once";
  scene.makeHelper("1.1", scene.installDirectory());
  const auto before = treeDigest(scene.installedHelper());
  const auto host = scene.start(scene.makeHost("Host", "1.0", supervised));
  EXPECT_EQ(host->call("launch"), "no");
  EXPECT_EQ(treeDigest(scene.installedHelper()), before);
}

}  // namespace
}  // namespace qbdkr::test
