#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include <ClientComm/Export.h>

namespace qbdkr {

// Tells the kinds of steps apart. The comments say what number, subject and detail of the step
// hold.
enum class StepKind : std::uint8_t {
  // Configuration, as it was read.
  keyRead,     // subject: key; detail: value
  keyMissing,  // subject: key
  // Deployment.
  helperResourceMissing,  // subject: name of the bundle
  helperInstalled,        // subject: path; detail: version
  helperUpgraded,         // subject: path; detail: both versions
  helperKept,             // subject: path; detail: both versions
  helperRepaired,         // subject: path; detail: version
  deploymentFailed,       // number: errno, 0 if unknown; subject: path; detail: reason
  // Launch.
  helperFoundRunning,  // number: process, 0 if unknown; subject: path
  programStarted,      // number: process; subject: path of the executable
  programRefused,      // number: errno; subject: path of the executable
  programMissing,      // subject: path of the bundle
  helperCheckedIn,     // number: milliseconds since the start; subject: path of the executable
  helperNotCheckedIn,  // number: milliseconds since the start; subject: path of the executable
  helperEndedAtStart,  // number: milliseconds since the start; subject: executable; detail: how
  libraryMissing,      // subject: path of the executable; detail: the library that it lacks
  launchHeldBack,      // number: milliseconds; subject: path
  launchLocked,        // subject: path of the bundle that another process opens
  processesUnknown,    // subject: path; the process table cannot be read
  // Liveness.
  helperReached,  // subject: identifier; as supervision or a check sees it
  helperLost,     // subject: identifier
  helperEnded,    // subject: path; supervision ended it; detail: why
  // Requests.
  requestFailed,          // number: status; subject: identifier; detail: class and method
  emptyAnswer,            // subject: identifier; detail: class and method
  busObstacle,            // subject: one line that says why posts may be lost
  directConnectionBegun,  // subject: identifier; detail: unique name of its process on the bus
  directConnectionLeft,   // subject: identifier; what follows goes over the bus
  // Reports and requests that came in.
  senderRefused,      // subject: class and method; its sender is not an application in a bundle
  classUnknown,       // subject: class; detail: sender
  methodUnknown,      // subject: class and method; detail: sender
  methodFailed,       // subject: class and method; detail: sender; it threw
  delegateDestroyed,  // subject: class that the delegate was set for
  reportNotTaken,     // subject: class and method; the host has no delegate for it
  // Scope of a helper agent that was started in one of its own (Linux).
  helperInOwnScope,     // number: process; subject: name of the scope
  helperNotInOwnScope,  // number: process; subject: identifier; detail: reason
};

// A step in the record of this process.
struct RecordedStep {
  StepKind kind{};                             // of the step
  std::chrono::system_clock::time_point time;  // of the last one, if it was repeated
  std::uint32_t count = 1;                     // how often it came in a row
  std::int64_t number = 0;                     // as the kind says
  // Valid UTF-8 in one line each. Long ones are cut in the middle.
  std::string subject;
  std::string detail;

  // Returns one sentence. Throws std::bad_alloc.
  [[nodiscard]] QBDKR_EXPORT std::string text() const;
};

// Returns the record: the last 256 steps of this process at most, the oldest first. Any thread;
// does not wait. Throws std::bad_alloc. With QBDKR_DEBUG=1 in the environment each step is also
// written to standard error as it happens.
[[nodiscard]] QBDKR_EXPORT std::vector<RecordedStep> recordedSteps();

}  // namespace qbdkr
