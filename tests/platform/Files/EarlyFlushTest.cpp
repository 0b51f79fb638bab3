#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "Platform/Files/EarlyFlush.h"

namespace qbdkr {
namespace {

constexpr std::chrono::seconds flushPatience(20);

TEST(EarlyFlush, BeginsWhenEnoughWasWritten) {
  std::promise<void> flushed;
  auto isFlushed = flushed.get_future();
  EarlyFlush early([&] { flushed.set_value(); });
  early.add(EarlyFlush::step - 1);
  EXPECT_EQ(isFlushed.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  early.add(1);
  EXPECT_EQ(isFlushed.wait_for(flushPatience), std::future_status::ready);
}

TEST(EarlyFlush, IsNotMadeForLess) {
  std::atomic<int> flushes{0};
  {
    EarlyFlush early([&] { ++flushes; });
    early.add(EarlyFlush::step - 1);
  }
  EXPECT_EQ(flushes, 0);
}

TEST(EarlyFlush, IsMadeAgainAfterAsMuch) {
  std::atomic<int> flushes{0};
  EarlyFlush early([&] { ++flushes; });
  const auto deadline = std::chrono::steady_clock::now() + flushPatience;
  while (flushes < 3 && std::chrono::steady_clock::now() < deadline) {
    early.add(EarlyFlush::step);
    std::this_thread::yield();
  }
  EXPECT_GE(flushes, 3);
}

TEST(EarlyFlush, IsOneAtATimeAndAwaited) {
  std::promise<void> mayEnd;
  const auto end = mayEnd.get_future().share();
  std::atomic<int> begun{0};
  std::atomic<int> ended{0};
  {
    EarlyFlush early([&, end] {
      ++begun;
      end.wait();
      ++ended;
    });
    for (int i = 0; i < 10; ++i) early.add(EarlyFlush::step);  // does not wait for the first one
    EXPECT_EQ(ended, 0);
    mayEnd.set_value();
  }
  EXPECT_EQ(begun, 1);
  EXPECT_EQ(ended, 1);
}

}  // namespace
}  // namespace qbdkr
