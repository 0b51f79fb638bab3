#include <array>
#include <ctime>
#include <string>
#include <system_error>

#include <ClientComm/RecordedStep.h>

#include "Platform/Base/StatusMeaning.h"
#include "Platform/Record/Record.h"

namespace qbdkr {
namespace {

std::string quoted(const std::string& text) { return '"' + text + '"'; }

std::string afterStart(std::int64_t milliseconds) {
  return std::to_string(milliseconds) + " ms after its start";
}

std::string inParentheses(const std::string& text) { return text.empty() ? "" : " (" + text + ')'; }

std::string from(const std::string& sender) { return sender.empty() ? "" : " from " + sender; }

std::string sentence(const RecordedStep& step) {
  const std::string& subject = step.subject;
  const std::string& detail = step.detail;
  const std::string number = std::to_string(step.number);
  switch (step.kind) {
    case StepKind::keyRead:
      return quoted(subject) + " is " + quoted(detail);
    case StepKind::keyMissing:
      return quoted(subject) + " is missing";
    case StepKind::helperResourceMissing:
      return quoted(subject) + " is not among the resources of the host";
    case StepKind::helperInstalled:
      return "installed " + subject + ": " + detail;
    case StepKind::helperUpgraded:
      return "replaced " + subject + ": " + detail;
    case StepKind::helperKept:
      return "kept " + subject + ": " + detail;
    case StepKind::helperRepaired:
      return "repaired " + subject + ": " + detail;
    case StepKind::deploymentFailed:
      return "could not install " + subject + ": " + detail;
    case StepKind::helperFoundRunning:
      return subject + " runs already" + (step.number > 0 ? ", process " + number : "");
    case StepKind::programStarted:
      return "started " + subject + ", process " + number;
    case StepKind::programRefused:
      return "could not start " + subject + ": " +
             std::generic_category().message(static_cast<int>(step.number));
    case StepKind::programMissing:
      return subject + " has no executable of the name that its Info.plist gives";
    case StepKind::helperCheckedIn:
      return subject + " could be reached " + afterStart(step.number);
    case StepKind::helperNotCheckedIn:
      return subject + " runs, but had no name on the bus " + afterStart(step.number);
    case StepKind::helperEndedAtStart:
      return subject + " ended " + afterStart(step.number) + ", before it could be reached" +
             inParentheses(detail);
    case StepKind::libraryMissing:
      return subject + " needs " + detail + ", which the loader does not find";
    case StepKind::launchHeldBack:
      return subject + " is not started for " + number + " ms: it ended too often";
    case StepKind::launchLocked:
      return "another process has kept the lock of " + subject;
    case StepKind::processesUnknown:
      return "could not look for " + subject + " among the processes";
    case StepKind::helperReached:
      return subject + " can be reached";
    case StepKind::helperLost:
      return subject + " cannot be reached any more";
    case StepKind::helperEnded:
      return "ended " + subject + ": " + detail;
    case StepKind::requestFailed:
      return detail + " to " + quoted(subject) + " returned " + number + " (" +
             meaningOf(static_cast<OSErr>(step.number)) + ')';
    case StepKind::emptyAnswer:
      return detail + " to " + quoted(subject) + " was answered with nothing";
    case StepKind::busObstacle:
      return subject;
    case StepKind::directConnectionBegun:
      return "events for " + subject + ", " + detail +
             " on the bus, go past it on a direct connection";
    case StepKind::directConnectionLeft:
      return "events for " + subject + " go over the bus again";
    case StepKind::senderRefused:
      return subject + " came from a process that is not in a bundle with an identifier";
    case StepKind::classUnknown:
      return "class " + quoted(subject) + from(detail) + " is unknown";
    case StepKind::methodUnknown:
      return subject + from(detail) + " is unknown";
    case StepKind::methodFailed:
      return subject + from(detail) + " failed";
    case StepKind::delegateDestroyed:
      return "the delegate of " + subject + " was destroyed, and takes no reports any more";
    case StepKind::reportNotTaken:
      return subject + " came, and the host has no delegate for it";
    case StepKind::helperInOwnScope:
      return "process " + number + " runs in a scope of its own, " + subject;
    case StepKind::helperNotInOwnScope:
      return quoted(subject) + ", process " + number + ", stays in the unit of the host: " + detail;
  }
  return subject;
}

}  // namespace

std::string timeText(std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%SZ", &parts);
  return text.data();
}

std::string RecordedStep::text() const {
  const std::string times = count > 1 ? " (" + std::to_string(count) + " times)" : "";
  return sentence(*this) + times;
}

}  // namespace qbdkr
