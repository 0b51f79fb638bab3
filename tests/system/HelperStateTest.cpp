// Watches the states of the helper agent as a host's handler gets them.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Base/Descriptor.h"
#include "support/Patience.h"
#include "support/ProcessEnd.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

const InfoKeys supervised{{"Helper is supervised", "1"}};
const std::string mark = "! state ";

// Keeps hosts from deploying into a directory.
class DeploymentLock {
 public:
  explicit DeploymentLock(const fs::path& directory) {
    fs::create_directories(directory);
    file_ = Descriptor(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_EQ(::flock(file_.get(), LOCK_EX | LOCK_NB), 0);
  }
  void release() { file_ = Descriptor(); }

 private:
  Descriptor file_;
};

class HelperStateTest : public testing::Test {
 protected:
  // Starts a host whose handler is there before anything is deployed.
  std::unique_ptr<HostProcess> startWatched(const TestBundle& bundle) {
    DeploymentLock lock(scene.installDirectory());
    auto host = scene.start(bundle);
    host->call("share");
    host->call("states");
    lock.release();
    return host;
  }

  // Starts a host whose handler gets the state of a helper agent that runs.
  std::unique_ptr<HostProcess> startAndWatch(const TestBundle& bundle) {
    auto host = scene.startAndShare(bundle);
    host->call("states");
    awaitRunning(*host);
    return host;
  }

  std::string running(const std::string& version) {
    std::string text = "running " + version;
    for (const pid_t process : Scene::processesIn(scene.installDirectory())) {
      text += ' ' + std::to_string(process);
    }
    return text;
  }

  // Waits for the helper agent's process to be told, and returns that state.
  std::string awaitRunning(HostProcess& host, const std::string& version = "1.0") {
    std::string told = awaitState(host, "running");
    EXPECT_EQ(told, running(version));
    return told;
  }

  // Waits for the next state of a kind and returns it.
  std::string awaitState(HostProcess& host, const std::string& kind) {
    host.process().waitForOutput(
        [&](const std::string& line) { return line.starts_with(mark + kind); }, seen_);
    const Lines lines = host.process().output();
    while (!lines.at(seen_++).starts_with(mark + kind)) {
    }
    return lines.at(seen_ - 1).substr(mark.size());
  }

  static Lines states(HostProcess& host) {
    Lines found;
    for (const std::string& line : host.process().output()) {
      if (line.starts_with(mark)) found.push_back(line.substr(mark.size()));
    }
    return found;
  }

  // Does the same, with the progress of an installation as one state.
  static Lines steps(HostProcess& host) {
    Lines found;
    for (std::string state : states(host)) {
      if (state.starts_with("installing ")) state = "installing";
      if (found.empty() || found.back() != state || state != "installing") found.push_back(state);
    }
    return found;
  }

  static std::size_t sizeOf(const fs::path& bundle) {
    std::size_t size = 0;
    for (const auto& entry : fs::recursive_directory_iterator(bundle)) {
      if (entry.is_regular_file() && !entry.is_symlink()) size += entry.file_size();
    }
    return size;
  }

  Scene scene;

 private:
  std::size_t seen_ = 0;  // lines of the host's output
};

TEST_F(HelperStateTest, FirstInstallationIsToldFromZeroToItsSize) {
  const auto bundle = scene.makeHost("Host", "1.0");
  const auto resource = bundle.resources() / "ProbeHelper.app";
  writeFile(resource / "Contents/large", std::string(std::size_t{64} << 20U, 'x'));
  const auto host = startWatched(bundle);
  awaitState(*host, "running");
  EXPECT_EQ(steps(*host), (Lines{"installing", "launching", running("1.0")}));
  const std::string total = std::to_string(sizeOf(resource));
  const Lines all = states(*host);
  EXPECT_EQ(all.front(), "installing 0 of " + total);
  EXPECT_EQ(all.at(all.size() - 3), "installing " + total + " of " + total);
}

TEST_F(HelperStateTest, HandlerGetsTheStateOfAHelperThatRuns) {
  const auto host = startAndWatch(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("restart"), "0");
  EXPECT_EQ(host->call("restart"), "0");
  scene.fence(*host);
  EXPECT_EQ(states(*host).size(), 1U);
}

TEST_F(HelperStateTest, KilledHelperIsLostAndRunsAsAnotherProcess) {
  const auto host = startAndWatch(scene.makeHost("Host", "1.0", supervised));
  const std::string before = running("1.0");
  ::kill(scene.helperProcess(), SIGKILL);
  awaitState(*host, "running");
  EXPECT_EQ(states(*host), (Lines{before, "lost", "launching", running("1.0")}));
  EXPECT_NE(running("1.0"), before);
}

TEST_F(HelperStateTest, WithoutSupervisionACheckFindsTheLoss) {
  const auto host = startAndWatch(scene.makeHost("Host", "1.0"));
  const std::string before = running("1.0");
  scene.killHelper(*host);
  EXPECT_EQ(host->call("alive"), "-600");
  awaitState(*host, "lost");
  EXPECT_EQ(host->call("restart"), "0");
  awaitState(*host, "running");
  EXPECT_EQ(states(*host), (Lines{before, "lost", "launching", running("1.0")}));
}

TEST_F(HelperStateTest, HelperThatAnotherHostStartedIsTold) {
  const auto host = startAndWatch(scene.makeHost("Host", "1.0"));
  const std::string before = running("1.0");
  scene.killHelper(*host);
  const auto other = scene.startAndShare(scene.makeHost("Other", "1.0"));
  EXPECT_EQ(host->call("alive"), "0");
  awaitState(*host, "running");
  EXPECT_EQ(states(*host), (Lines{before, running("1.0")}));
}

TEST_F(HelperStateTest, CrashLoopPauses) {
  scene.environment()["QBDKR_PROBE_MODE"] = "exit-for-now";
  const auto host = startWatched(scene.makeHost("Host", "1.0", supervised));
  const std::string paused = awaitState(*host, "paused ");
  const int left = std::stoi(paused.substr(paused.find(' ')));
  EXPECT_GT(left, 0);
  EXPECT_LE(left, 60'000);
  const Lines all = states(*host);
  EXPECT_EQ(std::ranges::count(all, "running"), 0);
  EXPECT_GE(std::ranges::count(all, "launching"), 2);
  writeFile(scene.transcript().path().string() + ".settled", "");
  awaitRunning(*host);
}

TEST_F(HelperStateTest, KillsOneAfterTheOtherPause) {
  const auto host = startAndWatch(scene.makeHost("Host", "1.0", supervised));
  for (int kills = 1; kills <= 4; ++kills) {
    ::kill(scene.helperProcess(), SIGKILL);
    awaitState(*host, "running");
  }
  ::kill(scene.helperProcess(), SIGKILL);
  awaitState(*host, "paused ");
  awaitState(*host, "running");
  const Lines all = states(*host);
  // One that was killed at its start may be repaired and launched meanwhile.
  const auto lostInAPause =
      std::ranges::adjacent_find(all, [](const std::string& state, const std::string& next) {
        return state.starts_with("paused ") && next == "lost";
      });
  EXPECT_EQ(lostInAPause, all.end()) << testing::PrintToString(all);
}

class UpgradeState : public HelperStateTest, public testing::WithParamInterface<InfoKeys> {};

TEST_P(UpgradeState, IsReplacedAndThenTheNewVersion) {
  scene.startAndShare(scene.makeHost("OldHost", "1.0"))->quit();
  const auto host = startWatched(scene.makeHost("NewHost", "1.1", GetParam()));
  awaitState(*host, "replaced");
  awaitRunning(*host, "1.1");
  EXPECT_EQ(host->call("restart"), "0");
  scene.fence(*host);
  Lines told = steps(*host);
  // The supervisor may see the older one first.
  if (told.front().starts_with("running ")) told.erase(told.begin());
  EXPECT_EQ(told, (Lines{"installing", "replaced", "launching", running("1.1")}));
}

INSTANTIATE_TEST_SUITE_P(All, UpgradeState, testing::Values(InfoKeys(), supervised),
                         [](const auto& tested) {
                           return tested.param.empty() ? "WithoutSupervision" : "UnderSupervision";
                         });

TEST_F(HelperStateTest, UpgradeByAnotherHostEndsInReplacedToo) {
  scene.environment()["QBDKR_PROBE_MODE"] = "stubborn";
  const auto host = startAndWatch(scene.makeHost("OldHost", "1.0"));
  const auto other = scene.start(scene.makeHost("NewHost", "1.1"));
  other->call("extract");
  EXPECT_EQ(host->call("supervise 0"), "yes");
  host->call("auto-restart");
  awaitState(*host, "replaced");
  awaitRunning(*host, "1.1");
  EXPECT_EQ(std::ranges::count(states(*host), "lost"), 0);
}

TEST_F(HelperStateTest, UpgradeThatFailsEndsInTheHelperThatRuns) {
  const auto bundle = scene.makeHost("Host", "1.0");
  const auto host = startAndWatch(bundle);
  fs::remove_all(bundle.resources() / "ProbeHelper.app");
  scene.makeHelper("1.1", bundle.resources());
  ASSERT_EQ(::mkfifo((bundle.resources() / "ProbeHelper.app/fifo").c_str(), 0600), 0);
  host->call("extract");
  awaitRunning(*host);
  EXPECT_EQ(steps(*host), (Lines{running("1.0"), "installing", running("1.0")}));
}

TEST_F(HelperStateTest, HelperThatCannotBeOpenedIsLost) {
  const auto bundle = scene.makeHost("Host", "1.0");
  const auto helper = bundle.resources() / "ProbeHelper.app/Contents/Linux/HelperProbe";
  fs::remove(helper);
  const auto host = startWatched(bundle);
  awaitState(*host, "lost");
  EXPECT_EQ(steps(*host), (Lines{"installing", "launching", "lost"}));
}

TEST_F(HelperStateTest, RepairIsAnInstallation) {
  const auto bundle = scene.makeHost("Host", "1.0", supervised);
  const auto helper = scene.makeHelper("1.0", scene.installDirectory());
  fs::remove(helper.path() / "Contents/Linux/HelperProbe");
  const auto host = startWatched(bundle);
  awaitState(*host, "running");
  EXPECT_EQ(steps(*host), (Lines{"launching", "installing", "launching", running("1.0")}));
}

TEST_F(HelperStateTest, HelperThatCannotBeReachedKeepsLaunching) {
  scene.environment()["QBDKR_PROBE_MODE"] = "never-check-in";
  const auto host = startWatched(scene.makeHost("Host", "1.0"));
  awaitState(*host, "launching");
  EXPECT_EQ(host->call("restart"), "0");  // after the start-up's launch
  EXPECT_EQ(steps(*host), (Lines{"installing", "launching"}));
}

TEST_F(HelperStateTest, ServerThatIsSwitchedOffIsClosed) {
  const auto host = startAndWatch(scene.makeHost("Host", "1.0", supervised));
  const std::string before = running("1.0");
  const auto file = scene.home().preferencesFile(scene.helperID());
  writeFile(file, "<plist version=\"1.0\"><dict><key>QBHPServerClosed</key><true/></dict></plist>");
  EXPECT_EQ(host->call("restart"), "10");
  awaitState(*host, "closed");
  scene.killHelper(*host);
  EXPECT_EQ(host->call("restart"), "10");
  EXPECT_EQ(states(*host), (Lines{before, "closed"}));
  fs::remove(file);
  EXPECT_EQ(host->call("restart"), "0");
  awaitRunning(*host);
}

TEST_F(HelperStateTest, StartUpFindsTheServerSwitchedOff) {
  writeFile(scene.home().preferencesFile(scene.helperID()),
            "<plist version=\"1.0\"><dict><key>QBHPServerClosed</key><true/></dict></plist>");
  const auto host = startWatched(scene.makeHost("Host", "1.0"));
  awaitState(*host, "closed");
  EXPECT_EQ(steps(*host), (Lines{"installing", "launching", running("1.0"), "closed"}));
}

TEST_F(HelperStateTest, StuckMainLoopGetsTheLatestStatesAndTheLastOne) {
  const auto host = startAndWatch(scene.makeHost("Host", "1.0"));
  host->call("block-main");
  for (int i = 0; i < 10; ++i) {
    scene.killHelper(*host);
    EXPECT_EQ(host->call("restart"), "0");
  }
  EXPECT_EQ(states(*host).size(), 1U);
  host->call("release-main");
  const std::string last = running("1.0");
  std::string told = awaitState(*host, "running");
  while (told != last) told = awaitState(*host, "running");
  const Lines all = states(*host);
  EXPECT_EQ(all.size(), 1U + 16U);
  for (std::size_t i = 2; i < all.size(); i += 3) {
    EXPECT_EQ(all.at(i), "lost");
    EXPECT_EQ(all.at(i + 1), "launching");
  }
}

TEST_F(HelperStateTest, HandlerThatIsTakenOffIsNotCalledAndTheNextOneGetsTheStateOfThen) {
  const auto host = startAndWatch(scene.makeHost("Host", "1.0"));
  const std::string before = running("1.0");
  host->call("states-off");
  scene.killHelper(*host);
  EXPECT_EQ(host->call("restart"), "0");
  scene.fence(*host);
  EXPECT_EQ(states(*host).size(), 1U);
  host->call("states");
  awaitRunning(*host);
  EXPECT_EQ(states(*host), (Lines{before, running("1.0")}));
}

}  // namespace
}  // namespace qbdkr::test
