#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include <ClientComm/Cancellation.h>
#include <ClientComm/RequestLimits.h>

#include "Platform/Events/CancellationState.h"
#include "support/ForkedBody.h"
#include "support/Sanitizers.h"

namespace qbdkr {
namespace {

struct CountingListener : CancellationListener {
  void onCancel() noexcept override { ++count; }
  std::atomic<int> count{0};
};

CancellationState& stateOf(const Cancellation& handle) { return *CancellationState::of(handle); }

TEST(CancellationTest, CopiesShareOneStateAndOtherHandlesDoNot) {
  const Cancellation handle;
  const Cancellation copy = handle;
  const Cancellation other;
  copy.cancel();
  EXPECT_TRUE(handle.isCancelled());
  EXPECT_FALSE(other.isCancelled());
}

TEST(CancellationTest, CallsEachListenerOnceAndNoneThatIsGone) {
  const Cancellation handle;
  const auto kept = std::make_shared<CountingListener>();
  const auto removed = std::make_shared<CountingListener>();
  EXPECT_NE(stateOf(handle).add(kept), 0U);
  stateOf(handle).remove(stateOf(handle).add(removed));
  EXPECT_NE(stateOf(handle).add(std::make_shared<CountingListener>()), 0U);
  handle.cancel();
  handle.cancel();
  EXPECT_EQ(kept->count, 1);
  EXPECT_EQ(removed->count, 0);
  EXPECT_EQ(stateOf(handle).add(kept), 0U) << "added after the end";
  stateOf(handle).remove(1);
  EXPECT_EQ(kept->count, 1);
}

TEST(CancellationTest, HandleThatWasMovedFromDoesNothing) {
  Cancellation handle;
  const Cancellation taken = std::move(handle);
  handle.cancel();  // NOLINT(bugprone-use-after-move)
  EXPECT_FALSE(handle.isCancelled());
  EXPECT_FALSE(taken.isCancelled());
}

TEST(CancellationTest, ManyThreadsMayCancelAddAndRemove) {
  for (int round = 0; round < 50; ++round) {
    const Cancellation handle;
    const auto listener = std::make_shared<CountingListener>();
    std::atomic<int> added{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&, i] {
        const auto ticket = stateOf(handle).add(listener);
        if (ticket != 0) ++added;
        if (i == 0) handle.cancel();
      });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(listener->count, added);
  }
}

TEST(CancellationTest, CanBeUsedInAForkedChildWhileAThreadOfTheParentUsesIt) {
  if (test::hasSanitizer) GTEST_SKIP() << "a sanitizer's own locks stay taken in the child";
  const Cancellation handle;
  std::atomic<bool> ends{false};
  std::thread busy([&] {
    const auto listener = std::make_shared<CountingListener>();
    while (!ends) stateOf(handle).remove(stateOf(handle).add(listener));
  });
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(test::runForked([&] {
                handle.cancel();
                return handle.isCancelled() && Cancellation().isCancelled() == false;
              }),
              0);
  }
  ends = true;
  busy.join();
  EXPECT_FALSE(handle.isCancelled());
}

#ifdef __cpp_lib_jthread
TEST(CancellationTest, FollowsAStopToken) {
  std::stop_source source;
  const Cancellation handle = source.get_token();
  const RequestLimits limits{.cancellation = source.get_token()};
  EXPECT_FALSE(handle.isCancelled());
  source.request_stop();
  EXPECT_TRUE(handle.isCancelled());
  EXPECT_TRUE(limits.cancellation->isCancelled());
  EXPECT_TRUE(Cancellation(source.get_token()).isCancelled());
  EXPECT_FALSE(Cancellation(std::stop_token()).isCancelled());
}

TEST(CancellationTest, StopMayDropTheLastCopyOfTheHandle) {
  struct Dropping : CancellationListener {
    explicit Dropping(Cancellation held) : handle(std::move(held)) {}
    void onCancel() noexcept override { handle.reset(); }
    std::optional<Cancellation> handle;
  };
  std::stop_source source;
  std::shared_ptr<Dropping> listener;
  {
    const Cancellation handle = source.get_token();
    listener = std::make_shared<Dropping>(handle);
    EXPECT_NE(stateOf(handle).add(listener), 0U);
  }
  source.request_stop();
  EXPECT_FALSE(listener->handle.has_value());
}
#endif

TEST(RequestLimitsTest, WithinTakesTimesOfAnyLength) {
  using Clock = RequestLimits::Clock;
  EXPECT_EQ(RequestLimits().deadline, Clock::time_point::max());
  EXPECT_GT(RequestLimits::within(std::chrono::milliseconds::max()).deadline,
            Clock::now() + std::chrono::hours(24 * 365));
  const auto before = Clock::now();
  EXPECT_GE(RequestLimits::within(std::chrono::milliseconds(5)).deadline,
            before + std::chrono::milliseconds(5));
  EXPECT_LE(RequestLimits::within(std::chrono::milliseconds(-5)).deadline, Clock::now());
}

}  // namespace
}  // namespace qbdkr
