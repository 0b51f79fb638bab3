#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "ProductClient/CauseFinder.h"

namespace qbdkr {
namespace {

using namespace std::chrono_literals;

RecordedStep step(StepKind kind, std::int64_t number = 0, const std::string& subject = "SUBJECT",
                  const std::string& detail = "DETAIL") {
  return {kind, {}, 1, number, subject, detail};
}

// Makes a diagnosis in which nothing is wrong: the helper agent runs and is reached.
Diagnosis healthy() {
  Diagnosis diagnosis;
  diagnosis.helpers.push_back({4711, "1.0", "/opt/Helper.app", {}, true});
  diagnosis.steps = {step(StepKind::helperInstalled), step(StepKind::helperCheckedIn, 12)};
  return diagnosis;
}

Diagnosis absent(std::vector<RecordedStep> steps) {
  Diagnosis diagnosis;
  diagnosis.steps = std::move(steps);
  return diagnosis;
}

std::string subjectOf(const Diagnosis& diagnosis, MainLoop mainLoop = MainLoop::runs) {
  const auto cause = findCause(diagnosis, mainLoop);
  return cause ? cause->subject : "none";
}

TEST(CauseFinder, HealthyHostHasNone) {
  EXPECT_EQ(subjectOf(healthy()), "none");
  EXPECT_EQ(subjectOf(healthy(), MainLoop::unknown), "none");
}

TEST(CauseFinder, FirstErrorOfTheExaminationComesBeforeAll) {
  auto diagnosis = absent({step(StepKind::helperEndedAtStart)});
  diagnosis.findings = {{Finding::Severity::warning, "a", "A.", ""},
                        {Finding::Severity::error, "b", "B.", "Do b."},
                        {Finding::Severity::error, "c", "C.", "Do c."}};
  const auto cause = findCause(diagnosis, MainLoop::standsStill);
  ASSERT_TRUE(cause);
  EXPECT_EQ(cause->subject, "b");
  EXPECT_EQ(cause->text, "B.");
  EXPECT_EQ(cause->remedy, "Do b.");
}

TEST(CauseFinder, WarningsAndNotesAreNoCause) {
  auto diagnosis = healthy();
  diagnosis.findings = {{Finding::Severity::warning, "a", "A.", ""},
                        {Finding::Severity::note, "b", "B.", ""}};
  EXPECT_EQ(subjectOf(diagnosis), "none");
}

TEST(CauseFinder, LongWaitIsNamedWithItsThread) {
  auto diagnosis = healthy();
  diagnosis.waiting = {{"REQUEST", 2500ms, true}};
  const auto cause = findCause(diagnosis, MainLoop::standsStill);
  ASSERT_TRUE(cause);
  EXPECT_EQ(cause->subject, "waiting-request");
  EXPECT_EQ(cause->text, "REQUEST has waited for its answer for 2 s, on the main thread.");
  diagnosis.waiting = {{"REQUEST", 999ms, false}};
  EXPECT_EQ(subjectOf(diagnosis), "none");
}

TEST(CauseFinder, LongWaitOnTheMainThreadIsNamedBeforeALongerOne) {
  auto diagnosis = healthy();
  diagnosis.waiting = {{"OLDEST", 3000ms, false}, {"MAIN", 1000ms, true}};
  const auto textOf = [&] { return findCause(diagnosis, MainLoop::runs)->text; };
  EXPECT_EQ(textOf(), "MAIN has waited for its answer for 1 s, on the main thread.");
  diagnosis.waiting.back().time = 999ms;
  EXPECT_EQ(textOf(), "OLDEST has waited for its answer for 3 s.");
}

TEST(CauseFinder, MainLoopThatStandsStillIsTheCauseIfTheHelperAgentIsReached) {
  EXPECT_EQ(subjectOf(healthy(), MainLoop::standsStill), "main-loop");
  EXPECT_EQ(subjectOf(absent({step(StepKind::programRefused)}), MainLoop::standsStill), "launch");
}

TEST(CauseFinder, LastLaunchCounts) {
  using enum StepKind;
  EXPECT_EQ(subjectOf(absent({step(helperCheckedIn), step(helperEndedAtStart)})), "launch");
  EXPECT_EQ(subjectOf(absent({step(helperEndedAtStart), step(launchHeldBack)})), "launch");
  EXPECT_EQ(subjectOf(absent({step(helperEndedAtStart), step(libraryMissing)})), "launch");
  EXPECT_EQ(subjectOf(absent({step(helperEndedAtStart), step(helperNotCheckedIn)})), "check-in");
  EXPECT_EQ(subjectOf(absent({step(programMissing)})), "launch");
  EXPECT_EQ(subjectOf(absent({step(launchLocked)})), "launch");
  EXPECT_EQ(subjectOf(absent({step(processesUnknown)})), "launch");
  EXPECT_EQ(subjectOf(absent({step(helperEndedAtStart), step(helperCheckedIn)})), "lost");
}

TEST(CauseFinder, ProcessThatRunsAndIsNotReachedIsOnAnotherBus) {
  const auto cause = findCause(absent({step(StepKind::helperFoundRunning, 99, "/opt/Helper.app")}),
                               MainLoop::runs);
  ASSERT_TRUE(cause);
  EXPECT_EQ(cause->subject, "other-bus");
  EXPECT_EQ(cause->text,
            "/opt/Helper.app runs already, process 99, and cannot be reached on this bus.");
}

TEST(CauseFinder, FailedDeploymentCountsUntilOneSucceeds) {
  using enum StepKind;
  EXPECT_EQ(subjectOf(absent({step(deploymentFailed)})), "deployment");
  EXPECT_EQ(subjectOf(absent({step(deploymentFailed), step(programMissing)})), "deployment");
  EXPECT_EQ(subjectOf(absent({step(deploymentFailed), step(helperInstalled)})), "not-launched");
  auto diagnosis = healthy();
  diagnosis.steps.push_back(step(deploymentFailed));
  EXPECT_EQ(subjectOf(diagnosis), "deployment");
}

TEST(CauseFinder, HelperAgentThatWasReachedAndIsNotAnyMoreIsLost) {
  EXPECT_EQ(subjectOf(absent({step(StepKind::helperCheckedIn), step(StepKind::helperLost)})),
            "lost");
  EXPECT_EQ(subjectOf(absent({})), "not-launched");
}

TEST(CauseFinder, LastTroubleWithARequestOrReportIsNamed) {
  using enum StepKind;
  const auto after = [](const RecordedStep& last) {
    auto diagnosis = healthy();
    diagnosis.steps.push_back(step(requestFailed, -609));
    diagnosis.steps.push_back(last);
    return findCause(diagnosis, MainLoop::runs).value_or(Diagnosis::Cause());
  };
  EXPECT_EQ(after(step(emptyAnswer)).subject, "empty-answer");
  EXPECT_EQ(after(step(senderRefused)).subject, "report");
  EXPECT_EQ(after(step(reportNotTaken)).subject, "report");
  EXPECT_EQ(after(step(classUnknown)).subject, "report");
  EXPECT_EQ(after(step(delegateDestroyed)).subject, "delegate");
  const auto early = after(step(requestFailed, -600, "com.Acme.Helper", "Data page"));
  EXPECT_EQ(early.subject, "request");
  EXPECT_EQ(early.text,
            R"(Data page to "com.Acme.Helper" returned -600 (the target is not running).)");
  EXPECT_NE(early.remedy.find("launchHelepr()"), std::string::npos);
  EXPECT_NE(after(step(requestFailed, -50)).remedy.find("UTF-8"), std::string::npos);
  EXPECT_NE(after(step(requestFailed, -1743)).remedy.find("policy"), std::string::npos);
}

TEST(CauseFinder, DelegateThatWasDestroyedIsWhyAReportIsNotTaken) {
  auto diagnosis = healthy();
  diagnosis.steps = {step(StepKind::delegateDestroyed), step(StepKind::reportNotTaken)};
  EXPECT_EQ(subjectOf(diagnosis), "delegate");
}

TEST(CauseFinder, ProxyIsWhyASenderIsRefused) {
  using enum StepKind;
  auto diagnosis = healthy();
  diagnosis.steps = {step(busObstacle)};
  EXPECT_EQ(subjectOf(diagnosis), "none");
  for (const auto kind : {senderRefused, emptyAnswer, requestFailed}) {
    diagnosis.steps = {step(busObstacle), step(kind)};
    EXPECT_EQ(subjectOf(diagnosis), "proxy");
  }
  diagnosis.steps = {step(busObstacle), step(classUnknown)};
  EXPECT_EQ(subjectOf(diagnosis), "report");
}

TEST(CauseFinder, CheckThatFoundNoHelperAgentIsNoTrouble) {
  auto diagnosis = healthy();
  diagnosis.steps.push_back(step(StepKind::requestFailed, -600, "com.Acme.Helper",
                                 "QBHPHelperControl isAlive:prodeuctVersion:"));
  EXPECT_EQ(subjectOf(diagnosis), "none");
}

TEST(CauseFinder, EachCauseHasASentenceAndARemedy) {
  using enum StepKind;
  for (const auto kind :
       {programRefused, programMissing, helperNotCheckedIn, helperEndedAtStart, launchLocked,
        processesUnknown, helperFoundRunning, helperLost, deploymentFailed}) {
    const auto cause = findCause(absent({step(kind)}), MainLoop::runs);
    ASSERT_TRUE(cause);
    EXPECT_NE(cause->text.find("SUBJECT"), std::string::npos);
    EXPECT_TRUE(cause->text.ends_with('.')) << cause->text;
    EXPECT_TRUE(cause->remedy.ends_with('.')) << cause->remedy;
  }
}

TEST(Diagnosis, TextBeginsWithCauseAndRemedy) {
  auto diagnosis = healthy();
  diagnosis.cause = Diagnosis::Cause{"a", "A is missing.", "Add a."};
  diagnosis.findings = {{Finding::Severity::ok, "x", "X is fine.", ""},
                        {Finding::Severity::warning, "y", "Y is odd.", ""}};
  diagnosis.waiting = {{"REQUEST", 1500ms, true}};
  const std::string text = diagnosis.text();
  EXPECT_TRUE(
      text.starts_with("Cause: A is missing.\nRemedy: Add a.\n"
                       "Helper agent: version 1.0, process 4711, reached, /opt/Helper.app\n"
                       "Waiting: REQUEST, for 1500 ms, on the main thread\n"
                       "Finding: warning: Y is odd.\n"
                       "Step: 1970-01-01 00:00:00Z installed SUBJECT: DETAIL\n"))
      << text;
}

TEST(Diagnosis, TextSaysThatNothingIsWrong) {
  EXPECT_TRUE(healthy().text().starts_with("Nothing is wrong.\nHelper agent: version 1.0"));
  EXPECT_TRUE(Diagnosis().text().ends_with("Helper agent: none runs\n"));
}

}  // namespace
}  // namespace qbdkr
