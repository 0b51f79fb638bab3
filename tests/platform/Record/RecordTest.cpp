#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Record/Record.h"
#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

using Steps = std::vector<RecordedStep>;

// Returns the steps of one kind: the tests of a process share its record.
Steps steps(StepKind kind) {
  Steps found = recordedSteps();
  std::erase_if(found, [kind](const RecordedStep& step) { return step.kind != kind; });
  return found;
}

TEST(Record, KeepsKindNumberSubjectDetailAndTime) {
  const auto before = std::chrono::system_clock::now();
  record(StepKind::deploymentFailed, 28, "/opt/Acme", "no space left on device");
  const Steps found = steps(StepKind::deploymentFailed);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].number, 28);
  EXPECT_EQ(found[0].subject, "/opt/Acme");
  EXPECT_EQ(found[0].detail, "no space left on device");
  EXPECT_EQ(found[0].count, 1U);
  EXPECT_GE(found[0].time, before);
  EXPECT_LE(found[0].time, std::chrono::system_clock::now());
  EXPECT_EQ(found[0].text(), "could not install /opt/Acme: no space left on device");
}

TEST(Record, TellsWhetherAHelperAgentHasAScopeOfItsOwn) {
  record(StepKind::helperInOwnScope, 7, "app-com.Acme.Helper-1.scope");
  record(StepKind::helperNotInOwnScope, 7, "com.Acme.Helper", "not today");
  EXPECT_EQ(steps(StepKind::helperInOwnScope).at(0).text(),
            "process 7 runs in a scope of its own, app-com.Acme.Helper-1.scope");
  EXPECT_EQ(steps(StepKind::helperNotInOwnScope).at(0).text(),
            R"("com.Acme.Helper", process 7, stays in the unit of the host: not today)");
}

TEST(Record, TellsWhichWayEventsGo) {
  record(StepKind::directConnectionBegun, "com.Acme.Helper", ":1.7");
  record(StepKind::directConnectionLeft, "com.Acme.Helper");
  EXPECT_EQ(steps(StepKind::directConnectionBegun).at(0).text(),
            "events for com.Acme.Helper, :1.7 on the bus, go past it on a direct connection");
  EXPECT_EQ(steps(StepKind::directConnectionLeft).at(0).text(),
            "events for com.Acme.Helper go over the bus again");
}

TEST(Record, StepThatIsRepeatedIsCountedAndComesLast) {
  record(StepKind::requestFailed, -600, "com.Acme.Helper", "Control start");
  record(StepKind::requestFailed, -609, "com.Acme.Helper", "Control start");
  record(StepKind::requestFailed, -600, "com.Acme.Helper", "Control start");
  const Steps found = steps(StepKind::requestFailed);
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].number, -609);
  EXPECT_EQ(found[1].number, -600);
  EXPECT_EQ(found[1].count, 2U);
  EXPECT_EQ(
      found[1].text(),
      R"(Control start to "com.Acme.Helper" returned -600 (the target is not running) (2 times))");
}

TEST(Record, StepsThatDifferInOneTextAloneAreKeptApart) {
  record(StepKind::keyRead, "ab", "c");
  record(StepKind::keyRead, "a", "bc");
  record(StepKind::keyRead, "ab", "d");
  EXPECT_EQ(steps(StepKind::keyRead).size(), 3U);
}

TEST(Record, LongTextsLoseTheirMiddle) {
  const std::string path = "/begin/" + std::string(300, 'x') + "/end";
  record(StepKind::programMissing, path);
  record(StepKind::programStarted, 7, path, path);
  const RecordedStep alone = steps(StepKind::programMissing).at(0);
  EXPECT_EQ(alone.subject.size(), 233U);
  EXPECT_TRUE(alone.subject.starts_with("/begin/xx"));
  EXPECT_TRUE(alone.subject.ends_with("xx/end"));
  EXPECT_NE(alone.subject.find("x...x"), std::string::npos);
  const RecordedStep both = steps(StepKind::programStarted).at(0);
  EXPECT_EQ(both.subject.size() + both.detail.size(), 233U);
  EXPECT_TRUE(both.detail.ends_with("/end"));
}

TEST(Record, ShortDetailLeavesItsRoomToTheSubject) {
  const std::string path(230, 'p');
  record(StepKind::helperInstalled, path, "1.0");
  EXPECT_EQ(steps(StepKind::helperInstalled).at(0).subject, path);
  EXPECT_EQ(steps(StepKind::helperInstalled).at(0).detail, "1.0");
}

TEST(Record, TextsFromOutsideAreValidAndInOneLine) {
  record(StepKind::classUnknown, "a\nb\033[1m\xFF", "\xE2\x82");
  const RecordedStep step = steps(StepKind::classUnknown).at(0);
  EXPECT_EQ(step.subject, R"(a\nb\x1b[1m\xff)");
  EXPECT_TRUE(isValidUTF8(step.detail));
  EXPECT_TRUE(isValidUTF8(step.text()));
}

TEST(Record, NewStepTakesThePlaceOfTheOldest) {
  for (int i = 0; i < 300; ++i) record(StepKind::methodUnknown, i, "method");
  const Steps all = recordedSteps();
  ASSERT_EQ(all.size(), 256U);
  EXPECT_TRUE(std::ranges::is_sorted(all, {}, &RecordedStep::time));
  const Steps found = steps(StepKind::methodUnknown);
  ASSERT_EQ(found.size(), 256U);
  EXPECT_EQ(found.front().number, 44);
  EXPECT_EQ(found.back().number, 299);
}

TEST(Record, StormOfOneStepTakesOnePlace) {
  record(StepKind::helperKept, "first");
  for (int i = 0; i < 1000; ++i) record(StepKind::emptyAnswer, "storm");
  EXPECT_EQ(steps(StepKind::emptyAnswer).at(0).count, 1000U);
  EXPECT_EQ(steps(StepKind::helperKept).size(), 1U);
}

TEST(Record, ThreadsAddStepsAtOnce) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      for (int n = 0; n < 500; ++n) {
        record(StepKind::helperReached, i, "thread");
        static_cast<void>(recordedSteps());
      }
    });
  }
  for (auto& thread : threads) thread.join();
  const Steps found = steps(StepKind::helperReached);
  ASSERT_EQ(found.size(), 4U);
  for (const RecordedStep& step : found) EXPECT_EQ(step.count, 500U);
}

TEST(Record, EachKindHasASentenceWithItsSubject) {
  std::set<std::string> sentences;
  constexpr int kinds = static_cast<int>(StepKind::reportNotTaken) + 1;
  for (int kind = 0; kind < kinds; ++kind) {
    const RecordedStep step{static_cast<StepKind>(kind), {}, 1, 5, "SUBJECT", "DETAIL"};
    EXPECT_NE(step.text().find("SUBJECT"), std::string::npos) << kind;
    sentences.insert(step.text());
  }
  EXPECT_EQ(sentences.size(), static_cast<std::size_t>(kinds));
}

}  // namespace
}  // namespace qbdkr
