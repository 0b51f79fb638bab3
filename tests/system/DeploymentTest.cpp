// Deploys the helper agent over every state in which a host can find the installed one.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "support/ProcessEnd.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

const std::string keptLine = "helper in conetent's version is lower";

fs::path markerIn(const fs::path& bundle) { return bundle / "Contents/Resources/marker"; }

fs::path helperOf(const TestBundle& host) { return host.resources() / "ProbeHelper.app"; }

// Installs a copy with a mark, which no later copy has.
void installMarked(Scene& scene, const std::string& version) {
  const auto helper = scene.makeHelper(version, scene.installDirectory());
  writeFile(markerIn(helper.path()), "installed before");
}

TEST(Deployment, FirstRunMakesTheDirectoriesCopiesTheHelperAndOpensIt) {
  Scene scene;
  scene.recordEarlierStarts();
  const auto bundle = scene.makeHost("Host", "1.0");
  ASSERT_FALSE(fs::exists(scene.home().path() / ".local"));
  const auto host = scene.startAndShare(bundle);
  EXPECT_EQ(treeDigest(scene.installedHelper()), treeDigest(helperOf(bundle)));
  EXPECT_EQ(scene.transcript().count(" started version 1.0"), 1U);
  EXPECT_GT(scene.helperProcess(), 0);
  EXPECT_EQ(scene.stagingLeftovers(), std::vector<std::string>());
  scene.transcript().waitFor({"start:prodeuctVersion:", " 1001 3.1"});
}

struct Decision {
  const char* name;
  const char* installed;  // version; null without an installed copy
  const char* resource;
  bool running;
  bool removable;
  bool replaced;
};

void PrintTo(const Decision& decision, std::ostream* stream) { *stream << decision.name; }

class DeploymentDecision : public testing::TestWithParam<Decision> {};

TEST_P(DeploymentDecision, IsTakenByTheVersions) {
  const Decision& decision = GetParam();
  Scene scene;
  scene.recordEarlierStarts();
  scene.environment()["QBDKR_PROBE_MODE"] = "stubborn";  // keeps running, and can be counted
  if (decision.installed != nullptr) installMarked(scene, decision.installed);
  if (decision.running) {
    const auto first = scene.makeHostWithoutHelper("FirstHost");
    scene.startAndShare(first)->quit();
  }
  const auto before = treeDigest(scene.installedHelper());
  const auto bundle = scene.makeHost("Host", decision.resource);

  auto options = scene.options();
  if (!decision.removable) {
    fs::permissions(scene.installDirectory(), fs::perms::owner_read | fs::perms::owner_exec);
    options.obeyFilePermissions = true;
  }
  const std::size_t already = scene.transcript().lines().size();
  const auto host = scene.start(bundle, options);
  host->call("share");
  const std::string sender = "from " + host->identifier();
  scene.transcript().waitFor({"start:prodeuctVersion:", sender}, already);
  fs::permissions(scene.installDirectory(), fs::perms::owner_all);

  EXPECT_EQ(treeDigest(scene.installedHelper()),
            decision.replaced ? treeDigest(helperOf(bundle)) : before);
  const bool compared = decision.installed != nullptr;
  const bool newer = decision.replaced || !decision.removable;
  EXPECT_EQ(host->process().logLinesWith(keptLine), compared && !newer ? 1U : 0U);
  EXPECT_EQ(host->process().logLinesWith("helper version = " + std::string(decision.resource)),
            compared && decision.replaced ? 1U : 0U);
  EXPECT_EQ(host->process().logLinesWith("remove " + scene.installedHelper().string() +
                                         " error Permission denied"),
            decision.removable ? 0U : 1U);
  EXPECT_EQ(scene.transcript().count("exitHelper:productVersion: " + sender + " 1001 3.1"),
            decision.running && newer ? 1U : 0U);
  EXPECT_EQ(scene.transcript().count(" started version"), 1U) << "a second helper process";
  EXPECT_EQ(scene.stagingLeftovers(), std::vector<std::string>());
}

constexpr Decision decisions[] = {
    {"NothingInstalled", nullptr, "1.0", false, true, true},
    {"Equal", "1.0", "1.0", false, true, false},
    {"EqualAndRunning", "1.0", "1.0", true, true, false},
    {"Older", "1.1", "1.0", false, true, false},
    {"OlderAndRunning", "1.1", "1.0", true, true, false},
    {"LongerIsNewer", "1.0", "1.0.1", false, true, true},
    {"LongerIsNewerAndRunning", "1.0", "1.0.1", true, true, true},
    {"NumbersAreNotTexts", "1.9", "1.10", false, true, true},
    {"PreReleaseIsOlder", "1.0", "1.0b2", false, true, false},
    {"ReleaseIsNewerThanItsPreRelease", "1.0b2", "1.0", false, true, true},
    {"NewerButNotRemovable", "1.0", "1.1", false, false, false},
    {"NewerAndRunningButNotRemovable", "1.0", "1.1", true, false, false},
};

INSTANTIATE_TEST_SUITE_P(All, DeploymentDecision, testing::ValuesIn(decisions),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(Deployment, RunningHelperThatObeysTheExitRequestIsReplacedByTheNewOne) {
  Scene scene;
  const auto oldHost = scene.makeHost("OldHost", "1.0");
  scene.startAndShare(oldHost)->quit();
  const ProcessEnd oldHelper(scene.helperProcess());

  const auto bundle = scene.makeHost("NewHost", "1.0.1");
  const auto host = scene.start(bundle);
  host->call("share");
  // Without a check, and without a second helper agent at any time.
  scene.transcript().waitFor({" started version 1.0.1"});
  scene.transcript().waitForCount("start:prodeuctVersion: from ", 2);
  EXPECT_TRUE(oldHelper.comesWithin(std::chrono::seconds(0))) << "the old helper did not end";
  EXPECT_EQ(scene.transcript().count(" started version"), 2U);
  EXPECT_EQ(treeDigest(scene.installedHelper()), treeDigest(helperOf(bundle)));
  EXPECT_GT(scene.helperProcess(), 0);
}

TEST(Deployment, HelperThatTakesItsTimeToExitIsAwaited) {
  Scene scene;
  scene.environment()["QBDKR_PROBE_MODE"] = "slow-exit";
  scene.startAndShare(scene.makeHost("OldHost", "1.0"))->quit();
  const pid_t oldHelper = scene.helperProcess();
  const auto host = scene.start(scene.makeHost("NewHost", "1.1"));
  host->call("share");
  scene.transcript().waitFor({" leaves"});
  EXPECT_EQ(host->call("version " + scene.installedHelper().string()), "1.0");
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
  ::kill(oldHelper, SIGUSR1);
  scene.transcript().waitFor({" started version 1.1"});
}

TEST(Deployment, HelperThatIgnoresTheExitRequestIsReplacedAfterFiveSeconds) {
  Scene scene;
  scene.environment()["QBDKR_PROBE_MODE"] = "stubborn";
  scene.startAndShare(scene.makeHost("OldHost", "1.0"))->quit();
  const auto host = scene.start(scene.makeHost("NewHost", "1.1"));
  const auto begin = std::chrono::steady_clock::now();
  host->call("extract");
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
  EXPECT_EQ(host->call("version " + scene.installedHelper().string()), "1.1");
  EXPECT_EQ(host->call("launch"), "yes");
  EXPECT_EQ(scene.transcript().count(" started version"), 1U) << "a second helper process";
}

TEST(Deployment, CopyThatCannotBeMadeLeavesTheOldHelperInstalledRunningAndAnswering) {
  Scene scene;
  const auto oldHost = scene.startAndShare(scene.makeHost("OldHost", "1.0"));
  const pid_t helper = scene.helperProcess();
  const auto before = treeDigest(scene.installedHelper());
  const auto bundle = scene.makeHost("NewHost", "1.1");
  const auto pipe = helperOf(bundle) / "Contents/pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const auto host = scene.startAndShare(bundle);
  host->process().waitForLog("copy " + pipe.string() + " error Operation not supported");
  EXPECT_EQ(treeDigest(scene.installedHelper()), before);
  EXPECT_EQ(scene.stagingLeftovers(), std::vector<std::string>());
  for (auto* each : {oldHost.get(), host.get()}) {
    EXPECT_EQ(each->call("ask " + scene.helperID() + " Probe echo: there"), "0 there");
  }
  EXPECT_EQ(scene.helperProcess(), helper);
  EXPECT_EQ(scene.transcript().count("exitHelper:productVersion:"), 0U);
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
}

TEST(Deployment, CheckOfAnotherHostDuringTheHandOverDoesNotOpenTheOldOneAgain) {
  Scene scene;
  scene.environment()["QBDKR_PROBE_MODE"] = "slow-exit";
  const auto oldHost = scene.startAndShare(scene.makeHost("OldHost", "1.0"));
  const pid_t oldHelper = scene.helperProcess();
  const auto host = scene.start(scene.makeHost("NewHost", "1.1"));
  host->call("share");
  scene.transcript().waitFor({" leaves"});
  const auto check = oldHost->begin("restart");
  for (int i = 0; i < 10; ++i) EXPECT_EQ(host->call("running " + scene.helperID()), "yes");
  ::kill(oldHelper, SIGUSR1);
  EXPECT_EQ(oldHost->finish(check), "0");
  scene.transcript().waitFor({" started version 1.1"});
  EXPECT_EQ(scene.transcript().count(" started version"), 2U);
}

TEST(Deployment, HelperOnItsWayOutIsAwaitedAndOpenedAgain) {
  Scene scene;
  scene.environment()["QBDKR_PROBE_MODE"] = "slow-exit";
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  const pid_t helper = scene.helperProcess();
  host->call("send " + scene.helperID() + " QBHPHelperControl exitHelper:productVersion: 7 1");
  scene.transcript().waitFor({" leaves"});
  const auto launch = host->begin("launch");
  for (int i = 0; i < 10; ++i) EXPECT_EQ(host->call("running " + scene.helperID()), "yes");
  EXPECT_FALSE(host->hasFinished(launch));
  ::kill(helper, SIGUSR1);
  EXPECT_EQ(host->finish(launch), "yes");
  EXPECT_EQ(scene.transcript().count(" started version"), 2U);
  scene.transcript().waitForCount("start:prodeuctVersion:", 2);
}

TEST(Deployment, HelperWithoutAnIdentifierIsOpenedOnce) {
  Scene scene;
  auto helper = scene.makeHelper("1.0", scene.installDirectory());
  helper.setKeys({{"CFBundleIdentifier", ""}});
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  for (int i = 0; i < 5; ++i) EXPECT_EQ(host->call("launch"), "yes");
  scene.transcript().waitFor({" started version"});
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
  EXPECT_EQ(Scene::processesIn(scene.installDirectory()).size(), 1U);
}

TEST(Deployment, HelperWithAnotherIdentifierThanIsAskedForIsOpenedOnce) {
  Scene scene;
  auto helper = scene.makeHelper("1.0", scene.installDirectory());
  helper.setKeys({{"CFBundleIdentifier", scene.identifier("Other")}});
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  for (int i = 0; i < 5; ++i) EXPECT_EQ(host->call("launch"), "yes");
  scene.transcript().waitFor({" started version"});
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
}

// Its process is that of the system's shell, and it has no name on the bus.
TEST(Deployment, ScriptWithoutAnIdentifierIsOpenedOnce) {
  Scene scene;
  auto helper = scene.makeHelper("1.0", scene.installDirectory());
  helper.setKeys({{"CFBundleIdentifier", ""}});
  fs::remove(helper.executable());
  writeFile(helper.executable(),
            "#!/bin/sh\n"
            "echo \"$$ started version script\" >>\"$QBDKR_PROBE_TRANSCRIPT\"\n"
            "while [ -e \"$QBDKR_PROBE_TRANSCRIPT\" ]; do sleep 0.1; done\n");
  fs::permissions(helper.executable(), fs::perms::owner_all);
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  for (int i = 0; i < 5; ++i) EXPECT_EQ(host->call("launch"), "yes");
  scene.transcript().waitFor({" started version"});
  const pid_t script = std::stoi(scene.transcript().lines().front());
  const ProcessEnd end(script);
  ::kill(script, SIGKILL);
  ASSERT_TRUE(end.comesWithin(patience));
  EXPECT_EQ(host->call("launch"), "yes") << "after its end";
  scene.transcript().waitForCount(" started version", 2);
  EXPECT_EQ(scene.transcript().count(" started version"), 2U);
}

TEST(Deployment, OldHelperThatStaysUnderAnotherProgramNameIsStillTheOnlyOne) {
  Scene scene;
  scene.environment()["QBDKR_PROBE_MODE"] = "stubborn";
  scene.startAndShare(scene.makeHost("OldHost", "1.0"))->quit();
  const auto bundle = scene.makeHost("NewHost", "1.1");
  const auto programs = bundle.resources() / "ProbeHelper.app/Contents/Linux";
  fs::rename(programs / "HelperProbe", programs / "Renamed");
  const auto info = bundle.resources() / "ProbeHelper.app/Contents/Info.plist";
  std::string text = readFile(info);
  text.replace(text.find("HelperProbe"), std::string("HelperProbe").size(), "Renamed");
  writeFile(info, text);
  const auto host = scene.start(bundle);
  host->call("extract");
  EXPECT_EQ(host->call("version " + scene.installedHelper().string()), "1.1");
  EXPECT_EQ(host->call("launch"), "yes");
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
}

TEST(Deployment, WorkerOfTheBundleDoesNotPassForTheHelper) {
  Scene scene;
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  scene.killHelper(*host);
  const auto worker = scene.installedHelper() / "Contents/Linux/worker";
  fs::copy_file("/bin/sleep", worker);
  const ChildProcess working({worker.string(), "60"}, scene.options());
  EXPECT_EQ(host->call("running " + scene.helperID()), "no");
  EXPECT_EQ(host->call("restart"), "0");
  scene.transcript().waitForCount(" started version", 2);
}

// A helper agent that ran as another user leaves a directory of that user in the copy.
TEST(Deployment, InstalledCopyThatCannotBeRemovedWholeStaysWhole) {
  if (geteuid() != 0) GTEST_SKIP() << "needs two users";
  Scene scene;
  installMarked(scene, "1.0");
  const auto foreign = scene.installedHelper() / "Contents/foreign";
  writeFile(foreign / "file", "foreign");
  constexpr uid_t other = 65534;
  ASSERT_EQ(chown((foreign / "file").c_str(), other, other), 0);
  ASSERT_EQ(chown(foreign.c_str(), other, other), 0);
  const auto before = treeDigest(scene.installedHelper());
  auto options = scene.options();
  options.obeyFilePermissions = true;
  const auto host = scene.start(scene.makeHost("Host", "1.1"), options);
  host->call("extract");
  EXPECT_EQ(treeDigest(scene.installedHelper()), before);
  host->process().waitForLog("remove " + scene.installedHelper().string() +
                             " error Permission denied: " + foreign.string());
}

TEST(Deployment, RunningHelperGetsTheStartRequestAndNoSecondProcess) {
  Scene scene;
  const auto bundle = scene.makeHost("Host", "1.0");
  scene.startAndShare(bundle)->quit();
  const pid_t helper = scene.helperProcess();
  const std::string start = "start:prodeuctVersion: from " + scene.hostID();
  const std::size_t before = scene.transcript().count(start);
  const auto again = scene.startAndShare(bundle);
  EXPECT_EQ(again->call("launch"), "yes");
  scene.fence(*again);
  EXPECT_EQ(scene.helperProcess(), helper);
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
  EXPECT_EQ(scene.transcript().count(start), before + 2);
}

TEST(Deployment, VanishedInstalledCopyIsInstalledAgainByTheLaunch) {
  Scene scene;
  const auto bundle = scene.makeHost("Host", "1.0");
  const auto host = scene.startAndShare(bundle);
  scene.killHelper(*host);
  fs::remove_all(scene.installedHelper());
  EXPECT_EQ(host->call("restart"), "0");
  EXPECT_EQ(treeDigest(scene.installedHelper()), treeDigest(helperOf(bundle)));
  EXPECT_EQ(scene.transcript().count(" started version"), 2U);
}

// --- The configuration

// Makes a host with a working helper agent under two names.
TestBundle hostWithTwoHelpers(Scene& scene, const InfoKeys& keys) {
  auto host = scene.makeHostWithoutHelper("Host", keys);
  scene.makeHelper("1.0", host.resources(), "First");
  scene.makeHelper("1.0", host.resources(), "Second");
  return host;
}

TEST(HelperName, MisspelledKeyWins) {
  Scene scene;
  const auto host = scene.startAndShare(
      hostWithTwoHelpers(scene, {{"Helepr App name", "First"}, {"Helper App name", "Second"}}));
  EXPECT_TRUE(fs::exists(scene.installDirectory() / "First.app"));
  EXPECT_FALSE(fs::exists(scene.installDirectory() / "Second.app"));
}

TEST(HelperName, CorrectKeyIsUsedWhenItIsAlone) {
  Scene scene;
  const auto host = scene.startAndShare(
      hostWithTwoHelpers(scene, {{"Helepr App name", ""}, {"Helper App name", "Second"}}));
  EXPECT_FALSE(fs::exists(scene.installDirectory() / "First.app"));
  EXPECT_TRUE(fs::exists(scene.installDirectory() / "Second.app"));
}

TEST(InstallDirectory, MisspelledKeyWins) {
  Scene scene;
  const auto other = scene.home().path() / "Other";
  const auto host = scene.startAndShare(
      scene.makeHost("Host", "1.0", {{"Helper location path", other.string()}}));
  EXPECT_TRUE(fs::exists(scene.installedHelper()));
  EXPECT_FALSE(fs::exists(other));
}

TEST(InstallDirectory, CorrectKeyIsUsedWhenItIsAlone) {
  Scene scene;
  const auto other = scene.home().path() / "Other";
  const auto host = scene.startAndShare(scene.makeHost(
      "Host", "1.0", {{"Helper loaction path", ""}, {"Helper location path", other.string()}}));
  EXPECT_TRUE(fs::exists(other / "ProbeHelper.app"));
  EXPECT_FALSE(fs::exists(scene.installDirectory()));
}

TEST(InstallDirectory, TildeIsTheHomeDirectory) {
  for (const std::string key : {"Helper loaction path", "Helper location path"}) {
    Scene scene;
    auto bundle = scene.makeHost("Host", "1.0", {{"Helper loaction path", ""}});
    bundle.setKeys({{key, "~/.local/share/Acme"}});
    const auto host = scene.startAndShare(bundle);
    EXPECT_TRUE(fs::exists(scene.installedHelper())) << key;
  }
}

// "extract" and "launch" repeat the work of the start-up thread. Once its lock on the directory is
// free and the launch has failed, that thread has ended its work.
TEST(MissingKeys, NoHelperNameCreatesTheDirectoryAndLaunchesNothing) {
  Scene scene;
  const auto host = scene.start(scene.makeHost("Host", "1.0", {{"Helepr App name", ""}}));
  host->call("share");
  host->call("extract");
  EXPECT_EQ(host->call("launch"), "no");
  EXPECT_TRUE(fs::is_directory(scene.installDirectory()));
  EXPECT_TRUE(fs::is_empty(scene.installDirectory()));
  EXPECT_EQ(scene.transcript().lines().size(), 0U);
}

TEST(MissingKeys, NoInstallDirectoryCopiesAndLaunchesNothing) {
  Scene scene;
  const auto host = scene.start(scene.makeHost("Host", "1.0", {{"Helper loaction path", ""}}));
  host->call("share");
  host->call("extract");
  EXPECT_EQ(host->call("launch"), "no");
  EXPECT_FALSE(fs::exists(scene.home().path() / ".local"));
  EXPECT_EQ(scene.transcript().lines().size(), 0U);
}

TEST(MissingKeys, NoHelperAmongTheResourcesLaunchesNothing) {
  Scene scene;
  const auto host = scene.start(scene.makeHostWithoutHelper("Host"));
  host->call("share");
  host->call("extract");
  EXPECT_EQ(host->call("launch"), "no");
  EXPECT_TRUE(fs::is_empty(scene.installDirectory()));
}

TEST(MissingKeys, NoHelperIdentifierOpensTheHelperButReachesNobody) {
  Scene scene;
  const auto host =
      scene.start(scene.makeHost("Host", "1.0", {{"Helper Bundle indentifiter", ""}}));
  host->call("share");
  scene.transcript().waitFor({" started version 1.0"});
  EXPECT_EQ(host->call("launch"), "yes");
  EXPECT_EQ(host->call("stop-status"), "-600");
  EXPECT_EQ(host->call("alive"), "-600");
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
  EXPECT_EQ(scene.transcript().count(" call "), 0U);
}

TEST(MissingKeys, NoProductIdentityIsSentAsEmptyTexts) {
  Scene scene;
  const auto host =
      scene.startAndShare(scene.makeHost("Host", "1.0", {{"PID", ""}, {"CFBundleVersion", ""}}));
  const std::string line = scene.transcript().waitFor({"start:prodeuctVersion:"});
  EXPECT_TRUE(line.ends_with(host->identifier() + " % %")) << line;
}

TEST(Deployment, UtilitiesFindVersionsAndApplications) {
  Scene scene;
  const auto bundle = scene.makeHost("Host", "2.5");
  const auto host = scene.start(bundle);
  EXPECT_EQ(host->call("version " + helperOf(bundle).string()), "2.5");
  EXPECT_EQ(host->call("version /nowhere"), "~");
  EXPECT_EQ(host->call("app-path " + bundle.resources().string()), helperOf(bundle).string());
  EXPECT_EQ(host->call("app-path " + (bundle.path() / "Contents/Linux").string()), "~");
  EXPECT_EQ(host->call("app-path /nowhere"), "~");
}

}  // namespace
}  // namespace qbdkr::test
