#include "ProductClient/CauseFinder.h"

#include <algorithm>
#include <chrono>
#include <initializer_list>
#include <string>

#include <ClientComm/QBHPHelperControl.h>
#include <ClientComm/Status.h>

namespace qbdkr {
namespace {

using Cause = Diagnosis::Cause;
using Steps = std::vector<RecordedStep>;

// A request that waits as long as this is worth a look.
constexpr std::chrono::seconds longWait(1);

bool isOneOf(StepKind kind, std::initializer_list<StepKind> kinds) {
  return std::ranges::find(kinds, kind) != kinds.end();
}

// Returns the last step of these kinds; null without one.
const RecordedStep* lastOf(const Steps& steps, std::initializer_list<StepKind> kinds) {
  const auto found = std::find_if(steps.rbegin(), steps.rend(), [kinds](const RecordedStep& step) {
    return isOneOf(step.kind, kinds);
  });
  return found == steps.rend() ? nullptr : &*found;
}

std::string sentence(const RecordedStep& step) { return step.text() + '.'; }

std::optional<Cause> causeOfExamination(const Diagnosis& diagnosis) {
  const auto error =
      std::ranges::find(diagnosis.findings, Finding::Severity::error, &Finding::severity);
  if (error == diagnosis.findings.end()) return std::nullopt;
  return Cause{error->subject, error->text, error->remedy};
}

// Prefers a request on the main thread, since that holds up the whole host.
const Diagnosis::Waiting* longWaitOf(const Diagnosis& diagnosis) {
  const Diagnosis::Waiting* found = nullptr;
  for (const auto& request : diagnosis.waiting) {
    if (request.time < longWait) continue;
    if (found == nullptr || (request.isOnMainThread && !found->isOnMainThread)) found = &request;
  }
  return found;
}

std::optional<Cause> causeOfWaiting(const Diagnosis& diagnosis) {
  const auto* request = longWaitOf(diagnosis);
  if (request == nullptr) return std::nullopt;
  const auto seconds = std::chrono::floor<std::chrono::seconds>(request->time).count();
  return Cause{"waiting-request",
               request->text + " has waited for its answer for " + std::to_string(seconds) + " s" +
                   (request->isOnMainThread ? ", on the main thread." : "."),
               "See why the helper agent does not answer, and make the request with a deadline or "
               "with a completion."};
}

std::optional<Cause> causeOfMainLoop(MainLoop mainLoop) {
  if (mainLoop != MainLoop::standsStill) return std::nullopt;
  return Cause{"main-loop",
               "The main run loop of this process does not run: no report arrives, and nothing is "
               "checked.",
               "Call RunLoop::main().run(), or watch its descriptor() in the loop of the host and "
               "call dispatch()."};
}

std::optional<Cause> causeOfDeployment(const Steps& steps) {
  using enum StepKind;
  const auto* last = lastOf(
      steps, {helperInstalled, helperUpgraded, helperKept, helperRepaired, deploymentFailed});
  if (last == nullptr || last->kind != deploymentFailed) return std::nullopt;
  return Cause{"deployment", sentence(*last),
               "Remove the obstacle; the next start of a host installs the helper agent."};
}

std::optional<Cause> causeOfLaunch(const Steps& steps) {
  using enum StepKind;
  const auto* last = lastOf(steps, {helperFoundRunning, helperCheckedIn, programRefused,
                                    programMissing, helperNotCheckedIn, helperEndedAtStart,
                                    libraryMissing, launchLocked, processesUnknown});
  if (last == nullptr) return std::nullopt;
  switch (last->kind) {
    case helperEndedAtStart:
      return Cause{"launch", sentence(*last),
                   "Start it by hand and read what it says, or start the host with QBDKR_DEBUG=1, "
                   "which passes that on."};
    case libraryMissing:
      return Cause{"launch", sentence(*last),
                   "Install the library, or put it where the helper agent looks for its own."};
    case helperNotCheckedIn:
      return Cause{"check-in", sentence(*last),
                   "Have it create QBHPAppleEventProcesser, or claim its bundle identifier on the "
                   "bus, and run its main loop."};
    case helperFoundRunning:
      return Cause{"other-bus", last->text() + ", and cannot be reached on this bus.",
                   "End that process; the next check starts one on this bus."};
    case programMissing:  // it may be missing because it could not be installed
      if (auto cause = causeOfDeployment(steps)) return cause;
      [[fallthrough]];
    case programRefused:
      return Cause{"launch", sentence(*last), "Repair or reinstall the helper agent."};
    case launchLocked:
      return Cause{"launch", sentence(*last), "Look for a host that hangs while it opens it."};
    case processesUnknown:
      return Cause{"launch", sentence(*last), "See that this process may read /proc."};
    default:
      return std::nullopt;
  }
}

// The helper agent cannot be reached.
std::optional<Cause> causeOfAbsence(const Steps& steps) {
  if (auto cause = causeOfLaunch(steps)) return cause;
  if (auto cause = causeOfDeployment(steps)) return cause;
  if (const auto* lost = lastOf(steps, {StepKind::helperLost, StepKind::helperCheckedIn})) {
    return Cause{"lost", "The helper agent ran, and has ended: " + sentence(*lost),
                 "Wait for the next check, or supervise it."};
  }
  return Cause{"not-launched", "This host has not launched the helper agent yet.",
               "Call QBHPHelper::share(), and wait for its start-up."};
}

const char* remedyFor(const RecordedStep& step) {
  switch (step.kind) {
    case StepKind::emptyAnswer:
      return "See whether the helper agent implements the request and serves this host; it "
             "answers an unknown request likewise.";
    case StepKind::requestFailed:
      break;
    case StepKind::delegateDestroyed:
      return "Keep the delegate as long as reports come, or set another one.";
    case StepKind::reportNotTaken:
      return "Set the delegate that takes the report.";
    case StepKind::senderRefused:
      return "Run the sender from a bundle with a CFBundleIdentifier.";
    default:
      return "Compare the names with those that the host serves.";
  }
  switch (step.number) {
    case procNotFound:
      return "Make the request after launchHelepr() has returned true.";
    case paramErr:
      return "Pass texts that are UTF-8, without NUL, within the bounds.";
    case errAEEventNotPermitted:
      return "See whether the process that owns the identifier runs the installed copy, and what "
             "the policy of the bus allows.";
    default:
      return "See the log of the helper agent.";
  }
}

const char* subjectFor(StepKind kind) {
  switch (kind) {
    case StepKind::emptyAnswer:
      return "empty-answer";
    case StepKind::requestFailed:
      return "request";
    case StepKind::delegateDestroyed:
      return "delegate";
    default:
      return "report";
  }
}

// The framework's own check fails whenever the helper agent does not run, which it then starts.
bool isCheck(const RecordedStep& step) {
  return step.kind == StepKind::requestFailed && step.number == procNotFound &&
         step.detail.ends_with(QBHPHelperControl::kIsAlive.text());
}

// Behind a proxy a receiver in another sandbox cannot tell who sent an event, and refuses it.
std::optional<Cause> causeOfProxy(const Steps& steps) {
  const auto* obstacle = lastOf(steps, {StepKind::busObstacle});
  if (obstacle == nullptr) return std::nullopt;
  return Cause{
      "proxy", sentence(*obstacle),
      "Have host and helper agent run in the same sandbox, or both outside: elsewhere a sender "
      "behind a proxy cannot be told, and is refused."};
}

// The helper agent can be reached: finds what failed nevertheless.
std::optional<Cause> causeOfTraffic(Steps steps) {
  using enum StepKind;
  std::erase_if(steps, isCheck);
  const auto* last =
      lastOf(steps, {requestFailed, emptyAnswer, senderRefused, classUnknown, methodUnknown,
                     methodFailed, reportNotTaken, delegateDestroyed});
  if (last != nullptr && last->kind == reportNotTaken) {
    if (const auto* end = lastOf(steps, {delegateDestroyed})) last = end;
  }
  if (last == nullptr) return causeOfDeployment(steps);
  if (isOneOf(last->kind, {requestFailed, emptyAnswer, senderRefused})) {
    if (auto cause = causeOfProxy(steps)) return cause;
  }
  return Cause{subjectFor(last->kind), sentence(*last), remedyFor(*last)};
}

}  // namespace

std::optional<Cause> findCause(const Diagnosis& diagnosis, MainLoop mainLoop) {
  if (auto cause = causeOfExamination(diagnosis)) return cause;
  if (auto cause = causeOfWaiting(diagnosis)) return cause;
  if (!std::ranges::any_of(diagnosis.helpers, &Diagnosis::Helper::isReached)) {
    return causeOfAbsence(diagnosis.steps);
  }
  if (auto cause = causeOfMainLoop(mainLoop)) return cause;
  return causeOfTraffic(diagnosis.steps);
}

}  // namespace qbdkr
