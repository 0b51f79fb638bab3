// Counts the checks that run at a time, and those that cover a request.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "HeldThreads.h"
#include "Platform/Base/DetachedThread.h"
#include "ProductClient/LivenessChecks.h"
#include "support/Patience.h"

namespace qbdkr::test {
namespace {

constexpr unsigned limit = LivenessChecks::mostAtOnce;

// Liveness checks on threads that the test runs.
class HeldLivenessChecks : public testing::Test {
 protected:
  void request(unsigned count) {
    for (unsigned i = 0; i < count; ++i) checks.request();
  }

  void runThreads() { threads.runAll(); }

  std::function<void()> onCheck = [] {};
  unsigned begun = 0;
  HeldThreads threads;
  LivenessChecks checks{[this] {
                          ++begun;
                          onCheck();
                        },
                        threads.starter()};
};

TEST_F(HeldLivenessChecks, ARequestIsFollowedByOneCheckOnAThreadOfItsOwn) {
  request(1);
  EXPECT_EQ(threads.count(), 1U);
  EXPECT_EQ(begun, 0U);
  runThreads();
  EXPECT_EQ(begun, 1U);
}

TEST_F(HeldLivenessChecks, EachRequestUpToTheLimitHasACheckOfItsOwn) {
  request(limit);
  EXPECT_EQ(threads.count(), limit);
  runThreads();
  EXPECT_EQ(begun, limit);
}

TEST_F(HeldLivenessChecks, ThoseBeyondTheLimitAreCoveredByOneCheckMore) {
  request(100);
  EXPECT_EQ(threads.count(), limit);
  runThreads();
  EXPECT_EQ(begun, limit + 1);
}

TEST_F(HeldLivenessChecks, TheCheckMoreRunsOnTheThreadOfTheFirstThatEnds) {
  request(limit + 1);
  threads.runNext();
  EXPECT_EQ(begun, 2U);
  threads.runNext();
  EXPECT_EQ(begun, 3U);
}

TEST_F(HeldLivenessChecks, ARequestDuringTheCheckMoreIsCoveredByAnother) {
  request(limit + 1);
  onCheck = [this] {
    if (begun == 2) checks.request();
  };
  threads.runNext();
  EXPECT_EQ(begun, 3U);
  runThreads();
  EXPECT_EQ(begun, limit + 2);
}

TEST_F(HeldLivenessChecks, WhenAllHaveEndedTheLimitIsAsBefore) {
  for (int round = 1; round <= 3; ++round) {
    begun = 0;
    request(100);
    EXPECT_EQ(threads.count(), limit) << round;
    runThreads();
    EXPECT_EQ(begun, limit + 1) << round;
  }
}

TEST_F(HeldLivenessChecks, AThreadThatEndsMakesRoomForOne) {
  request(limit);
  threads.runNext();
  request(2);
  EXPECT_EQ(threads.count(), limit);
  runThreads();
  EXPECT_EQ(begun, limit + 2);
}

TEST_F(HeldLivenessChecks, ACheckThatThrowsFreesItsPlace) {
  onCheck = [] { throw std::runtime_error("raised"); };
  request(limit + 1);
  runThreads();
  EXPECT_EQ(begun, limit + 1);
  request(100);
  EXPECT_EQ(threads.count(), limit);
}

TEST_F(HeldLivenessChecks, AThreadThatCannotBeMadeTakesNoPlace) {
  threads.refuses = true;
  request(100);
  threads.refuses = false;
  request(limit);
  EXPECT_EQ(threads.count(), limit);
  runThreads();
  EXPECT_EQ(begun, limit) << "a request that had no thread is covered by the next";
}

TEST_F(HeldLivenessChecks, ARequestWithoutAThreadIsCoveredByACheckThatRuns) {
  request(1);
  threads.refuses = true;
  request(5);
  EXPECT_EQ(threads.count(), 1U);
  runThreads();
  EXPECT_EQ(begun, 2U);
  threads.refuses = false;
  request(1);
  runThreads();
  EXPECT_EQ(begun, 3U);
}

TEST_F(HeldLivenessChecks, AFailureDoesNotForgetARequestThatCameMeanwhile) {
  request(limit - 1);
  bool isFirst = true;
  threads.onStart = [&] {
    threads.refuses = true;
    if (std::exchange(isFirst, false)) checks.request();  // beyond the limit
  };
  request(1);
  EXPECT_EQ(threads.count(), limit - 1);
  runThreads();
  EXPECT_EQ(begun, limit);
}

// Keeps real threads in their check until it is opened.
class Gate {
 public:
  void pass() {
    std::unique_lock lock(mutex_);
    ++begun_;
    mostInside_ = std::max(mostInside_, ++inside_);
    changed_.notify_all();
    changed_.wait(lock, [this] { return isOpen_; });
    --inside_;
    changed_.notify_all();
  }

  void open() {
    const std::lock_guard lock(mutex_);
    isOpen_ = true;
    changed_.notify_all();
  }

  // Waits for these numbers of threads. Returns false at the deadline.
  bool waitFor(unsigned begun, unsigned inside) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [&] { return begun_ >= begun && inside_ == inside; });
  }

  [[nodiscard]] unsigned begun() {
    const std::lock_guard lock(mutex_);
    return begun_;
  }

  [[nodiscard]] unsigned mostInside() {
    const std::lock_guard lock(mutex_);
    return mostInside_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  unsigned begun_ = 0;
  unsigned inside_ = 0;
  unsigned mostInside_ = 0;
  bool isOpen_ = false;
};

TEST(LivenessChecks, RunAtMostEightAtATimeHoweverManyThreadsAsk) {
  // Never destroyed: the threads may still be leaving them at the end of the test.
  static auto& gate = *new Gate;
  static auto& checks = *new LivenessChecks([] { gate.pass(); }, detachNewThread);
  constexpr unsigned askers = 4;
  std::vector<std::thread> asking;
  for (unsigned i = 0; i < askers; ++i) {
    asking.emplace_back([] {
      for (int k = 0; k < 250; ++k) checks.request();
    });
  }
  for (std::thread& asker : asking) asker.join();
  ASSERT_TRUE(gate.waitFor(limit, limit));
  EXPECT_EQ(gate.begun(), limit);
  gate.open();
  ASSERT_TRUE(gate.waitFor(limit + 1, 0));
  EXPECT_EQ(gate.mostInside(), limit);
}

}  // namespace
}  // namespace qbdkr::test
