#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Workspace/OpeningHistory.h"
#include "support/Environment.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = OpeningHistory::Clock;

// Stands for a process: its end is readable when it has ended.
struct Process {
  Process() {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe(ends.data()), 0);
    end = Descriptor(ends[0]);
    life = Descriptor(ends[1]);
  }

  Descriptor end;
  Descriptor life;
};

class History : public testing::Test {
 protected:
  History() { fs::create_directories(bundle); }

  // Starts the application at the first moment at which that is allowed, with this outcome, and
  // returns how long after the last start that was.
  seconds start(Presence presence) {
    const auto last = now;
    if (const auto pauseEnd = history.pausedUntil(bundle, now)) now = *pauseEnd;
    EXPECT_EQ(history.pausedUntil(bundle, now), std::nullopt);
    history.add(bundle, {presence, Descriptor()}, now);
    return std::chrono::duration_cast<seconds>(now - last);
  }
  std::vector<int> pausesBetweenStarts(int count) {
    std::vector<int> pauses;
    for (int i = 0; i < count; ++i) {
      pauses.push_back(static_cast<int>(start(Presence::ended).count()));
    }
    return pauses;
  }

  TemporaryDirectory directory;
  const std::string bundle = directory.path() / "Helper.app";
  OpeningHistory history;
  Clock::time_point now = Clock::now();
};

TEST_F(History, FiveQuickEndsAreFollowedByPausesThatDoubleUpTo60Seconds) {
  EXPECT_EQ(pausesBetweenStarts(14),
            (std::vector<int>{0, 0, 0, 0, 0, 1, 2, 4, 8, 16, 32, 60, 60, 60}));
}

TEST_F(History, AtMost15StartsIn5Minutes) {
  const auto begin = now;
  int starts = 0;
  for (; now < begin + std::chrono::minutes(5); now += milliseconds(5)) {
    if (history.pausedUntil(bundle, now)) continue;
    history.add(bundle, {Presence::ended, Descriptor()}, now);
    ++starts;
  }
  EXPECT_LE(starts, 15);
  EXPECT_GE(starts, 10);
}

TEST_F(History, FiveEndsInMoreThan10SecondsAreNoReasonToPause) {
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(history.pausedUntil(bundle, now), std::nullopt) << i;
    history.add(bundle, {Presence::ended, Descriptor()}, now);
    now += milliseconds(2500);
  }
}

TEST_F(History, PauseEndsWithAStartAfterWhichItIsReached) {
  pausesBetweenStarts(8);
  start(Presence::reachable);
  EXPECT_EQ(pausesBetweenStarts(6), (std::vector<int>{0, 0, 0, 0, 0, 1}));
}

TEST_F(History, ReplacedBundleIsAnother) {
  pausesBetweenStarts(8);
  EXPECT_NE(history.pausedUntil(bundle, now), std::nullopt);
  const fs::path replacement = directory.path() / "New.app";
  fs::create_directory(replacement);
  fs::rename(replacement, bundle);
  EXPECT_EQ(history.pausedUntil(bundle, now), std::nullopt);
}

TEST_F(History, ProcessOfAReplacedBundleStillRuns) {
  Process process;
  history.add(bundle, {Presence::running, std::move(process.end)}, now);
  fs::create_directory(directory.path() / "New.app");
  fs::rename(directory.path() / "New.app", bundle);
  EXPECT_EQ(history.pausedUntil(bundle, now), std::nullopt);
  EXPECT_TRUE(history.isRunning(bundle));
}

TEST_F(History, OtherBundlesAreNotHeldBack) {
  pausesBetweenStarts(8);
  EXPECT_EQ(history.pausedUntil(directory.path() / "Other.app", now), std::nullopt);
}

// An application without an identifier is never reached.
TEST_F(History, ApplicationThatCannotBeReachedCountsWhenItHasEnded) {
  for (int i = 0; i < 5; ++i) {
    Process process;
    EXPECT_EQ(history.pausedUntil(bundle, now), std::nullopt) << i;
    history.add(bundle, {Presence::running, std::move(process.end)}, now);
    EXPECT_TRUE(history.isRunning(bundle));
    process.life = Descriptor();
    EXPECT_FALSE(history.isRunning(bundle));
  }
  EXPECT_EQ(history.pausedUntil(bundle, now), now + seconds(1));
}

TEST_F(History, ReachedApplicationMayEndAsOftenAsItLikes) {
  for (int i = 0; i < 20; ++i) {
    Process process;
    EXPECT_EQ(history.pausedUntil(bundle, now), std::nullopt) << i;
    history.add(bundle, {Presence::reachable, std::move(process.end)}, now);
  }
}

TEST_F(History, NothingRunsThatWasNotStarted) { EXPECT_FALSE(history.isRunning(bundle)); }

}  // namespace
}  // namespace qbdkr::test
