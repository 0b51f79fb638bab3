// The calls that a host makes: those of the other tests are their own.

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <future>
#include <string>

#include "Host.h"
#include "ProductClient/SystemCalls.h"
#include "support/Environment.h"
#include "support/Patience.h"

namespace qbdkr::test {
namespace {

TEST(SystemCallsTest, StartThreadRunsItsBodyOnAnother) {
  std::promise<std::thread::id> ran;
  EXPECT_TRUE(SystemCalls().startThread([&] { ran.set_value(std::this_thread::get_id()); }));
  auto result = ran.get_future();
  ASSERT_EQ(result.wait_for(patience), std::future_status::ready);
  EXPECT_NE(result.get(), std::this_thread::get_id());
}

TEST(SystemCallsTest, IsRunningKnowsTheApplicationsOfThisMachine) {
  EXPECT_TRUE(SystemCalls().isRunning("com.Example.UnitTests", "/any/path"));
  EXPECT_FALSE(SystemCalls().isRunning("com.Example.None", "/any/path"));
}

TEST(SystemCallsTest, OpenFailsWithoutABundle) {
  const TemporaryDirectory directory;
  EXPECT_FALSE(SystemCalls().open(directory.path() / "Helper.app", {}, Placement::withHost));
}

TEST(SystemCallsTest, LockIsOneBetweenAll) {
  const TemporaryDirectory directory;
  const auto lock = SystemCalls().lock(directory.path(), std::chrono::seconds(0));
  EXPECT_TRUE(lock.isHeld());
  EXPECT_TRUE(FileLock::acquire(directory.path(), std::chrono::seconds(0)).isTaken());
  EXPECT_TRUE(SystemCalls().lock(directory.path(), std::chrono::seconds(0)).isTaken());
}

TEST(SystemCallsTest, NowIsTheTime) {
  const std::time_t before = std::time(nullptr);
  const std::time_t now = SystemCalls().now();
  EXPECT_LE(before, now);
  EXPECT_LE(now, std::time(nullptr) + 1);
}

}  // namespace
}  // namespace qbdkr::test
