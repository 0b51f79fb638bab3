// Makes more guarded requests than a host can check one by one.

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>

#include "support/ResourceUse.h"
#include "support/Scene.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds longestStorm(60);

std::size_t descriptorsIn(pid_t process, const fs::path& path) {
  std::size_t count = 0;
  for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(process) + "/fd")) {
    std::error_code gone;
    if (fs::read_symlink(entry.path(), gone) == path) ++count;
  }
  return count;
}

// Counts the descriptors of a process that lead to a path. A thread that waits for a lock of its
// own has one. A lock that passes on during a count is counted again, and hardly in both.
std::size_t descriptorsOn(pid_t process, const fs::path& path) {
  return std::min(descriptorsIn(process, path), descriptorsIn(process, path));
}

// Waits for a command, and returns the most descriptors on a path at a time.
std::size_t mostDescriptorsDuring(const std::string& tag, HostProcess& host, const fs::path& path) {
  constexpr int interval = 5;  // milliseconds
  const auto deadline = std::chrono::steady_clock::now() + longestStorm;
  std::size_t most = 0;
  while (!host.hasFinished(tag) && std::chrono::steady_clock::now() < deadline) {
    most = std::max(most, descriptorsOn(host.processID(), path));
    ::poll(nullptr, 0, interval);
  }
  host.finish(tag);
  return most;
}

TEST(RequestStorm, WhileTheHelperAgentStartsSlowlyCostsLittleAndIsFollowedByACheck) {
  Scene scene;
  scene.environment()["QBDKR_PROBE_MODE"] = "never-check-in";  // before SIGUSR1
  const auto host = scene.start(scene.makeHost("Host", "1.0"));
  const ResourceUse use(host->processID());
  host->call("share");
  scene.transcript().waitFor({" started version"});
  const auto storm = host->begin("guarded 1000");
  EXPECT_LE(mostDescriptorsDuring(storm, *host, scene.installedHelper()), 1U);
  // No running check has reached it: the request below belongs to a later check.
  EXPECT_EQ(scene.transcript().count("isAlive:prodeuctVersion:"), 0U);
  ::kill(scene.helperProcess(), SIGUSR1);
  scene.transcript().waitFor({"isAlive:prodeuctVersion:"});
  scene.fence(*host);
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
  use.expectModest();
}

// Five starts, then one each after 1, 2, 4 … s, of which the test sees a few.
TEST(RequestStorm, WhileTheHelperAgentCrashesStartsItLessAndLessOftenButNeverGivesUp) {
  Scene scene;
  scene.environment()["QBDKR_PROBE_MODE"] = "exit-for-now";
  const auto host = scene.start(scene.makeHost("Host", "1.0"));
  const ResourceUse use(host->processID());
  host->call("share");
  const auto begin = std::chrono::steady_clock::now();
  std::size_t crashes = 0;
  while (crashes < 7 || host->call("is-paused") != "yes") {
    ASSERT_LT(std::chrono::steady_clock::now(), begin + longestStorm);
    const auto storm = host->begin("guarded 200");
    EXPECT_LE(mostDescriptorsDuring(storm, *host, scene.installedHelper()), 2U);
    crashes = scene.transcript().count(" started version");
  }
  const auto time = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(time, std::chrono::seconds(3));
  // The pauses that are over add up to 1, 3, 7, 15 … s, and one start follows each.
  const auto seconds = static_cast<std::uint64_t>(time / std::chrono::seconds(1));
  const auto pauses = static_cast<std::size_t>(std::bit_width(seconds + 1) - 1);
  EXPECT_LE(crashes, 5U + pauses);
  // A check after the pause launches it successfully.
  writeFile(scene.transcript().path().string() + ".settled", "");
  const auto isReached = [&] { return scene.transcript().count("start:prodeuctVersion:") > 0; };
  while (!isReached() && std::chrono::steady_clock::now() < begin + longestStorm) {
    host->call("guarded 1");
  }
  scene.transcript().waitFor({"start:prodeuctVersion:"});
  EXPECT_GT(scene.helperProcess(), 0);
  while (host->call("is-paused") != "no") {  // the host hears of it after the helper agent
    ASSERT_LT(std::chrono::steady_clock::now(), begin + longestStorm);
  }
  use.expectModest();
}

}  // namespace
}  // namespace qbdkr::test
