// Tests in real time the timer that keeps the helper agent alive.

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "support/Scene.h"

namespace qbdkr::test {
namespace {

constexpr std::chrono::seconds oneTick(110);  // 60 s and some for a busy machine, less than two

using Clock = std::chrono::steady_clock;

TEST(Timer, KilledHelperComesBackWithTheTick) {
  Scene scene;
  const auto before = Clock::now();
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  scene.killHelper(*host);
  scene.transcript().waitForCount(" started version", 2, oneTick);
  EXPECT_GE(Clock::now() - before, std::chrono::seconds(58)) << "something else brought it back";
  scene.transcript().waitForCount("start:prodeuctVersion:", 2);
  EXPECT_GT(scene.helperProcess(), 0);
}

TEST(Timer, StoppedHelperThatRunsIsStartedAgainByTheTick) {
  Scene scene;
  const auto before = Clock::now();
  const auto host = scene.startAndShare(scene.makeHost("Host", "1.0"));
  EXPECT_EQ(host->call("stop"), "done");
  scene.transcript().waitFor({"stop:prodeuctVersion:"});
  EXPECT_EQ(scene.transcript().count("start:prodeuctVersion:"), 1U);
  scene.transcript().waitForCount("start:prodeuctVersion:", 2, oneTick);
  EXPECT_GE(Clock::now() - before, std::chrono::seconds(58)) << "something else started it";
  EXPECT_EQ(scene.transcript().count(" started version"), 1U);
}

}  // namespace
}  // namespace qbdkr::test
