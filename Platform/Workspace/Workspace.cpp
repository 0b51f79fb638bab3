#include "Platform/Workspace/Workspace.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <optional>
#include <utility>

#include <ClientComm/Bundle.h>

#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Files/FileLock.h"
#include "Platform/Processes/NativeProcesses.h"
#include "Platform/Processes/RunningApplications.h"
#include "Platform/Record/Record.h"
#include "Platform/Workspace/NativeWorkspace.h"
#include "Platform/Workspace/OpeningHistory.h"
#include "Platform/Workspace/Openings.h"
#include "Platform/Workspace/Program.h"

namespace qbdkr {
namespace {

using Clock = OpeningHistory::Clock;

// The holder of the lock seldom waits longer than the 10 s for a check-in.
constexpr std::chrono::seconds lockPatience(15);
// As long as one thread waits for the lock, for an application that ends, and for the check-in.
constexpr std::chrono::seconds turnPatience(30);
// A helper agent that was asked to exit has this long, as in an upgrade.
constexpr std::chrono::seconds presencePatience(5);
constexpr std::chrono::seconds loaderPatience(1);

Openings& openings() {
  static NeverDestroyed instance([] { return Openings(); });
  return *instance;
}

OpeningHistory& history() {
  static NeverDestroyed instance([] { return OpeningHistory(); });
  return *instance;
}

// Tells whether the application runs; absent if the system does not tell. If it is starting or
// ending by itself, waits until it can be reached or has ended. Its process may not be seen as the
// application, as that of a script with the system's interpreter, or of an older version whose
// program had another name.
std::optional<bool> isRunning(const Bundle& bundle, Reachability& reachability) {
  const auto identifier = bundle.infoString(kCFBundleIdentifierKey).value_or("");
  const auto deadline = Clock::now() + presencePatience;
  for (;;) {
    const auto processes = processesOfApplication(identifier, bundle.bundlePath());
    if (!processes) {
      record(StepKind::processesUnknown, bundle.bundlePath());
      return std::nullopt;
    }
    if (processes->empty()) {
      return history().isRunning(bundle.bundlePath()) || reachability.isThere();
    }
    const pid_t process = processes->front();
    const auto end = endOfProcess(process);
    if (!end && errno == ESRCH) continue;
    if (end && reachability.isKnown()) static_cast<void>(reachability.await(end, deadline));
    // The bus may have named another process, or one whose end it has not seen yet.
    if (end && end.isReadable()) continue;
    record(StepKind::helperFoundRunning, process, bundle.bundlePath());
    return true;
  }
}

// Asks the loader again for what it told an application that ended at its start: the application's
// standard error is its own, and nothing reads it.
void recordMissingLibraries(const std::string& executable) {
  for (const auto& library : librariesOfProgram(executable, loaderPatience).missing) {
    record(StepKind::libraryMissing, executable, library);
  }
}

std::int64_t millisecondsBetween(Clock::time_point begin, Clock::time_point end) {
  return std::chrono::round<std::chrono::milliseconds>(end - begin).count();
}

// Records how a start ended; errno says why there is no opening.
void recordStart(const Bundle& bundle, const std::optional<Opening>& opening,
                 std::int64_t duration) {
  const int error = errno;
  const auto executable = bundle.executablePath();
  if (!executable) return record(StepKind::programMissing, bundle.bundlePath());
  if (!opening) return record(StepKind::programRefused, error, *executable);
  switch (opening->presence) {
    case Presence::reachable:
      return record(StepKind::helperCheckedIn, duration, *executable);
    case Presence::running:
      return record(StepKind::helperNotCheckedIn, duration, *executable);
    case Presence::ended:
      record(StepKind::helperEndedAtStart, duration, *executable, endingOf(opening->end));
      return recordMissingLibraries(*executable);
  }
}

bool start(const Bundle& bundle, Reachability& reachability, const std::function<void()>& onStart,
           Placement placement) {
  const auto begin = Clock::now();
  if (const auto pauseEnd = history().pausedUntil(bundle.bundlePath(), begin)) {
    record(StepKind::launchHeldBack, millisecondsBetween(begin, *pauseEnd), bundle.bundlePath());
    return false;
  }
  if (onStart) onStart();
  auto opening = openApplication(bundle, reachability, placement);
  recordStart(bundle, opening, millisecondsBetween(begin, Clock::now()));
  if (!opening) return false;
  const bool isOpen = opening->presence != Presence::ended;
  history().add(bundle.bundlePath(), std::move(*opening), Clock::now());
  return isOpen;
}

// Opens it in one process at a time: the next process finds the application running. A process that
// keeps the lock all the time may be about to start it, so starting another one would be wrong; a
// later call tries again. On a file system without locks it starts in any case.
bool openAlone(const std::string& bundlePath, const std::function<void()>& onStart,
               Placement placement) {
  const auto lock = FileLock::acquire(bundlePath, lockPatience);
  const auto bundle = Bundle::withPath(bundlePath);
  if (!bundle) {
    record(StepKind::programMissing, bundlePath);
    return false;
  }
  const auto reachability = Reachability::of(*bundle);
  const auto running = isRunning(*bundle, *reachability);
  if (!running || *running) return running.has_value();
  if (lock.isTaken()) {
    record(StepKind::launchLocked, bundlePath);
    return false;
  }
  return start(*bundle, *reachability, onStart, placement);
}

}  // namespace

bool openFile(const std::string& bundlePath, const std::function<void()>& onStart,
              Placement placement) {
  return openings().join(bundlePath, Clock::now() + turnPatience,
                         [&] { return openAlone(bundlePath, onStart, placement); });
}

std::optional<Clock::time_point> openingPausedUntil(const std::string& bundlePath) {
  return history().pausedUntil(bundlePath, Clock::now());
}

std::optional<pid_t> reachedProcess(const std::string& bundleIdentifier) {
  return processOfPeer(bundleIdentifier);
}

}  // namespace qbdkr
