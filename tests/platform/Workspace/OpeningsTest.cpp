#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Workspace/Openings.h"
#include "support/Patience.h"
#include "support/WatchedThread.h"

namespace qbdkr::test {
namespace {

using Clock = Openings::Clock;

const std::string path = "/one.app";

Clock::time_point never() { return Clock::now() + patience; }
Clock::time_point atOnce() { return Clock::now(); }

bool notWanted() {
  ADD_FAILURE() << "a second thread was at it";
  return false;
}

// Runs a thread that works on a bundle until it is told its outcome.
class Leader {
 public:
  Leader(Openings& openings, const std::string& bundlePath = path)
      : thread_([this, &openings, bundlePath] {
          result_ = openings.join(bundlePath, never(), [this] {
            begun_.set_value();
            return outcome_.get_future().get();
          });
        }) {
    begun_.get_future().wait();
  }
  Leader(const Leader&) = delete;
  Leader& operator=(const Leader&) = delete;
  ~Leader() {
    if (thread_.joinable()) finish(false);
  }

  bool finish(bool outcome) {
    outcome_.set_value(outcome);
    thread_.join();
    return result_;
  }

 private:
  std::promise<void> begun_;
  std::promise<bool> outcome_;
  bool result_ = false;
  std::thread thread_;
};

// Runs threads that join while another one works on the bundle. Returns when all of them wait.
class Others {
 public:
  static constexpr std::size_t count = 8;

  explicit Others(Openings& openings) : outcomes_(count) {
    for (auto& outcome : outcomes_) {
      threads_.push_back(std::make_unique<WatchedThread>(
          [&openings, &outcome] { outcome = openings.join(path, never(), notWanted); }));
    }
    for (const auto& thread : threads_) EXPECT_TRUE(thread->waits());
  }

  std::deque<bool> outcomes() {
    threads_.clear();
    return outcomes_;
  }

 private:
  std::deque<bool> outcomes_;
  std::vector<std::unique_ptr<WatchedThread>> threads_;
};

TEST(Openings, TheOnlyThreadDoesTheWorkAndHasItsbool) {
  Openings openings;
  for (const bool outcome : {true, false}) {
    EXPECT_EQ(openings.join(path, atOnce(), [outcome] { return outcome; }), outcome);
  }
}

TEST(Openings, TheOthersTakeTheboolOfTheOneThatIsAtIt) {
  for (const bool outcome : {true, false}) {
    Openings openings;
    Leader leader(openings);
    Others others(openings);
    EXPECT_EQ(leader.finish(outcome), outcome);
    EXPECT_EQ(others.outcomes(), std::deque<bool>(Others::count, outcome));
  }
}

TEST(Openings, TheNextOneAfterwardsDoesTheWorkAnew) {
  Openings openings;
  Leader(openings).finish(false);
  EXPECT_EQ(openings.join(path, atOnce(), [] { return true; }), true);
}

TEST(Openings, AnotherBundleIsNoneOfItsBusiness) {
  Openings openings;
  const Leader leader(openings);
  EXPECT_EQ(openings.join("/other.app", atOnce(), [] { return true; }), true);
}

TEST(Openings, ForkedChildDoesNotWaitForAThreadOfItsParent) {
  Openings openings;
  Leader leader(openings);
  Others others(openings);
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    bool holds = true;
    for (int i = 0; i < 2; ++i) {
      holds &= openings.join(path, never(), [] { return true; }) == true;
    }
    _exit(holds ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(leader.finish(false), false);
  EXPECT_EQ(others.outcomes(), std::deque<bool>(Others::count, false));
}

TEST(Openings, AtTheDeadlineThereIsNobool) {
  Openings openings;
  Leader leader(openings);
  EXPECT_FALSE(openings.join(path, atOnce(), notWanted));
  EXPECT_EQ(leader.finish(true), true);
}

TEST(Openings, WorkThatThrowsHasFailedForTheOthersAndEndsItsTurn) {
  Openings openings;
  std::unique_ptr<Others> others;
  EXPECT_THROW(openings.join(path, never(),
                             [&]() -> bool {
                               others = std::make_unique<Others>(openings);
                               throw std::runtime_error("raised");
                             }),
               std::runtime_error);
  EXPECT_EQ(others->outcomes(), std::deque<bool>(Others::count, false));
  EXPECT_EQ(openings.join(path, atOnce(), [] { return true; }), true);
}

}  // namespace
}  // namespace qbdkr::test
