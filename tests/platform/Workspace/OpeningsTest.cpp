#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <future>
#include <memory>
#include <optional>
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
using Outcome = Openings::Outcome;

const std::string path = "/one.app";

Clock::time_point never() { return Clock::now() + patience; }
Clock::time_point atOnce() { return Clock::now(); }

Outcome notWanted() {
  ADD_FAILURE() << "a second thread was at it";
  return Outcome::failed;
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
    if (thread_.joinable()) finish(Outcome::failed);
  }

  std::optional<Outcome> finish(Outcome outcome) {
    outcome_.set_value(outcome);
    thread_.join();
    return result_;
  }

 private:
  std::promise<void> begun_;
  std::promise<Outcome> outcome_;
  std::optional<Outcome> result_;
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

  std::vector<std::optional<Outcome>> outcomes() {
    threads_.clear();
    return outcomes_;
  }

 private:
  std::vector<std::optional<Outcome>> outcomes_;
  std::vector<std::unique_ptr<WatchedThread>> threads_;
};

TEST(Openings, TheOnlyThreadDoesTheWorkAndHasItsOutcome) {
  Openings openings;
  for (const Outcome outcome : {Outcome::opened, Outcome::failed, Outcome::awaited}) {
    EXPECT_EQ(openings.join(path, atOnce(), [outcome] { return outcome; }), outcome);
  }
}

TEST(Openings, TheOthersTakeTheOutcomeOfTheOneThatIsAtIt) {
  for (const Outcome outcome : {Outcome::opened, Outcome::failed, Outcome::awaited}) {
    Openings openings;
    Leader leader(openings);
    Others others(openings);
    EXPECT_EQ(leader.finish(outcome), outcome);
    EXPECT_EQ(others.outcomes(), std::vector<std::optional<Outcome>>(Others::count, outcome));
  }
}

TEST(Openings, TheNextOneAfterwardsDoesTheWorkAnew) {
  Openings openings;
  Leader(openings).finish(Outcome::failed);
  EXPECT_EQ(openings.join(path, atOnce(), [] { return Outcome::opened; }), Outcome::opened);
}

TEST(Openings, AnotherBundleIsNoneOfItsBusiness) {
  Openings openings;
  const Leader leader(openings);
  EXPECT_EQ(openings.join("/other.app", atOnce(), [] { return Outcome::opened; }), Outcome::opened);
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
      holds &= openings.join(path, never(), [] { return Outcome::opened; }) == Outcome::opened;
    }
    _exit(holds ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(leader.finish(Outcome::failed), Outcome::failed);
  EXPECT_EQ(others.outcomes(), std::vector<std::optional<Outcome>>(Others::count, Outcome::failed));
}

TEST(Openings, AtTheDeadlineThereIsNoOutcome) {
  Openings openings;
  Leader leader(openings);
  EXPECT_EQ(openings.join(path, atOnce(), notWanted), std::nullopt);
  EXPECT_EQ(leader.finish(Outcome::opened), Outcome::opened);
}

TEST(Openings, WorkThatThrowsHasFailedForTheOthersAndEndsItsTurn) {
  Openings openings;
  std::unique_ptr<Others> others;
  EXPECT_THROW(openings.join(path, never(),
                             [&]() -> Outcome {
                               others = std::make_unique<Others>(openings);
                               throw std::runtime_error("raised");
                             }),
               std::runtime_error);
  EXPECT_EQ(others->outcomes(),
            std::vector<std::optional<Outcome>>(Others::count, Outcome::failed));
  EXPECT_EQ(openings.join(path, atOnce(), [] { return Outcome::opened; }), Outcome::opened);
}

}  // namespace
}  // namespace qbdkr::test
