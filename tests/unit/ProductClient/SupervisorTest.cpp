#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ProductClient/Supervisor.h"

namespace qbdkr::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = Supervisor::Clock;
using News = PeerWatch::News;

// Gives the news of the test, and then none, at once. Records the deadlines.
class ScriptedWatch final : public PeerWatch {
 public:
  News wait(Clock::time_point deadline) override {
    lastDeadline = deadline;
    if (std::exchange(isWoken, false)) return News::woken;
    if (news.empty()) return News::none;
    const News next = news.front();
    news.pop_front();
    return next;
  }
  void wake() override { isWoken = true; }
  void ping() override { ++pings; }
  [[nodiscard]] bool isAnswered() const override { return answers; }

  std::deque<News> news;
  Clock::time_point lastDeadline;
  int pings = 0;
  bool answers = true;
  bool isWoken = false;
};

class Supervising : public testing::Test {
 protected:
  Supervising() {
    auto made = std::make_unique<ScriptedWatch>();
    watch = made.get();
    supervisor = std::make_unique<Supervisor>(
        std::move(made), Supervisor::Actions{[this] { ++starts; }, [this] { ++checks; },
                                             [this] { ++ends; }, [this] { return pausedUntil; },
                                             [this] {
                                               pingsWhenFound = watch->pings;
                                               told.push_back("found");
                                             },
                                             [this] { told.push_back("lost"); },
                                             [this](auto until) {
                                               told.push_back("paused");
                                               toldPause = until;
                                             }});
  }
  void hear(News news) {
    watch->news.push_back(news);
    supervisor->turn();
  }

  ScriptedWatch* watch = nullptr;
  std::unique_ptr<Supervisor> supervisor;
  std::optional<Clock::time_point> pausedUntil;
  int starts = 0;
  int checks = 0;
  int ends = 0;
  int pingsWhenFound = -1;
  std::vector<std::string> told;
  Clock::time_point toldPause;
};

TEST_F(Supervising, WaitsWithoutALimitWhileAllIsWell) {
  hear(News::appeared);
  supervisor->turn();
  EXPECT_EQ(watch->lastDeadline, Clock::time_point::max());
  EXPECT_EQ(watch->pings, 0);
  EXPECT_EQ(starts, 0);
}

TEST_F(Supervising, LostHelperIsStartedAtOnce) {
  hear(News::appeared);
  hear(News::vanished);
  EXPECT_EQ(starts, 1);
}

TEST_F(Supervising, FifthLossWithinTenSecondsIsMadeGoodAfterASecond) {
  for (int i = 0; i < 5; ++i) {
    hear(News::appeared);
    hear(News::vanished);
  }
  EXPECT_EQ(starts, 4);
  supervisor->turn();
  EXPECT_GT(watch->lastDeadline, Clock::now() + milliseconds(500));
  EXPECT_LE(watch->lastDeadline, Clock::now() + seconds(1));
}

TEST_F(Supervising, HelperThatIsNotThereAtFirstIsStartedAndHasNotFailed) {
  hear(News::vanished);
  EXPECT_EQ(starts, 1);
  for (int i = 0; i < 4; ++i) {
    hear(News::appeared);
    hear(News::vanished);
  }
  EXPECT_EQ(starts, 5);
}

TEST_F(Supervising, ReturnDuringAPauseNeedsNoStart) {
  for (int i = 0; i < 5; ++i) {
    hear(News::appeared);
    hear(News::vanished);
  }
  hear(News::appeared);
  supervisor->turn();
  EXPECT_EQ(watch->lastDeadline, Clock::time_point::max());
}

TEST_F(Supervising, FailedStartIsRepeatedWhenThePauseIsOver) {
  pausedUntil = Clock::now() + seconds(32);
  supervisor->failed();
  supervisor->turn();
  EXPECT_EQ(starts, 0);
  supervisor->turn();
  EXPECT_EQ(watch->lastDeadline, *pausedUntil);
}

TEST_F(Supervising, FailedStartWithoutAPauseIsRepeatedAtOnceFourTimes) {
  for (int i = 0; i < 5; ++i) {
    supervisor->failed();
    supervisor->turn();
  }
  EXPECT_EQ(starts, 4);
}

TEST_F(Supervising, FailureWhileTheHelperIsThereIsNone) {
  hear(News::appeared);
  supervisor->failed();
  supervisor->turn();
  EXPECT_EQ(starts, 0);
}

TEST_F(Supervising, SuccessOfACheckIsDoubtedUntilTheHelperAppears) {
  hear(News::appeared);
  hear(News::vanished);
  EXPECT_EQ(starts, 1);
  supervisor->succeeded();
  const auto deadline = Clock::now() + seconds(20);
  while (starts == 1 && Clock::now() < deadline) supervisor->turn();
  EXPECT_EQ(starts, 2);
  supervisor->succeeded();
  hear(News::appeared);  // before the next one is due
  supervisor->turn();
  supervisor->succeeded();
  supervisor->turn();
  EXPECT_EQ(watch->lastDeadline, Clock::time_point::max());
  EXPECT_EQ(starts, 2);
}

TEST_F(Supervising, ResumeIsCheckedOnceAndIsNoLoss) {
  hear(News::appeared);
  hear(News::resumed);
  supervisor->turn();
  EXPECT_EQ(checks, 1);
  EXPECT_EQ(starts, 0);
  EXPECT_EQ(watch->lastDeadline, Clock::time_point::max());
}

TEST_F(Supervising, ResumeDuringAPauseStartsNothingEarlier) {
  for (int i = 0; i < 5; ++i) {
    hear(News::appeared);
    hear(News::vanished);
  }
  hear(News::resumed);
  EXPECT_EQ(checks, 0);
  EXPECT_EQ(starts, 4);
}

TEST_F(Supervising, PingFromBeforeASuspensionIsAskedAgain) {
  watch->answers = false;
  supervisor->set({milliseconds(60'000)});
  supervisor->turn();
  hear(News::appeared);
  EXPECT_EQ(watch->pings, 1);
  hear(News::resumed);
  EXPECT_EQ(watch->pings, 2);
  EXPECT_EQ(ends, 0);
}

TEST_F(Supervising, TellsEachLossAndReturn) {
  hear(News::vanished);
  EXPECT_EQ(told, std::vector<std::string>()) << "not there at first";
  hear(News::appeared);
  hear(News::vanished);
  EXPECT_EQ(told, (std::vector<std::string>{"found", "lost"}));
}

TEST_F(Supervising, TellsThePauseAfterTheFifthLoss) {
  for (int i = 0; i < 5; ++i) {
    hear(News::appeared);
    hear(News::vanished);
  }
  EXPECT_EQ(std::ranges::count(told, "paused"), 1);
  EXPECT_EQ(told.back(), "paused");
  EXPECT_EQ(supervisor->pausedUntil(), toldPause);
  supervisor->turn();
  EXPECT_EQ(toldPause, watch->lastDeadline);
  hear(News::appeared);
  EXPECT_EQ(supervisor->pausedUntil(), std::nullopt) << "another host started it";
}

TEST_F(Supervising, TellsThePauseAfterAFailedStart) {
  supervisor->failed();
  supervisor->turn();
  EXPECT_EQ(told, std::vector<std::string>()) << "repeated at once";
  pausedUntil = Clock::now() + seconds(32);
  supervisor->failed();
  supervisor->turn();
  EXPECT_EQ(told, std::vector<std::string>{"paused"});
  EXPECT_EQ(toldPause, pausedUntil);
}

TEST_F(Supervising, PingsAHelperThatIsThere) {
  supervisor->set({milliseconds(1)});
  supervisor->turn();
  EXPECT_EQ(watch->pings, 0);
  hear(News::appeared);
  EXPECT_GE(watch->pings, 1);
}

TEST_F(Supervising, PingsAfterItHasToldThatTheHelperIsThere) {
  supervisor->set({milliseconds(1)});
  supervisor->turn();
  hear(News::appeared);
  EXPECT_EQ(pingsWhenFound, 0);
}

TEST_F(Supervising, PingsFromTheCallOnIfTheHelperIsThereAlready) {
  hear(News::appeared);
  supervisor->set({milliseconds(60'000)});
  supervisor->turn();
  EXPECT_EQ(watch->pings, 1);
  supervisor->turn();
  EXPECT_LE(watch->lastDeadline, Clock::now() + seconds(60));
  EXPECT_EQ(watch->pings, 1);
  supervisor->set({milliseconds(0)});
  supervisor->turn();
  supervisor->turn();
  EXPECT_EQ(watch->lastDeadline, Clock::time_point::max());
}

TEST_F(Supervising, HelperThatDoesNotAnswerIsEndedOnce) {
  watch->answers = false;
  supervisor->set({milliseconds(1)});
  supervisor->turn();
  hear(News::appeared);
  const auto deadline = Clock::now() + seconds(20);
  while (ends == 0 && Clock::now() < deadline) supervisor->turn();
  EXPECT_EQ(ends, 1);
  hear(News::vanished);
  EXPECT_EQ(starts, 1);
}

TEST_F(Supervising, HelperThatAnswersIsPingedAgain) {
  supervisor->set({milliseconds(1)});
  supervisor->turn();
  hear(News::appeared);
  const auto deadline = Clock::now() + seconds(20);
  while (watch->pings < 3 && Clock::now() < deadline) supervisor->turn();
  EXPECT_GE(watch->pings, 3);
  EXPECT_EQ(ends, 0);
}

}  // namespace
}  // namespace qbdkr::test
