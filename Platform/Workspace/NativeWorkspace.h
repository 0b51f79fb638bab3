#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include <ClientComm/Bundle.h>

#include "Platform/Base/Descriptor.h"
#include "Platform/Workspace/Workspace.h"

namespace qbdkr {

// The state of an application after a wait: events reach it, or it runs and they do not, or it has
// ended.
enum class Presence { reachable, running, ended };

// Watches whether events reach an application, whatever process that is.
class Reachability {
 public:
  using Clock = std::chrono::steady_clock;

  virtual ~Reachability() = default;

  // Begins to ask the system, without waiting for its answer.
  [[nodiscard]] static std::unique_ptr<Reachability> of(const Bundle& bundle);

  // Tells whether the system can tell: on Linux not without an identifier or a bus, on macOS never.
  [[nodiscard]] virtual bool isKnown() = 0;

  // Tells whether events reach it now. False if the system does not tell.
  [[nodiscard]] virtual bool isThere() = 0;

  // Waits until it can be reached, its process has ended, or the deadline passes. Does not wait for
  // an application without an identifier, which no event reaches.
  [[nodiscard]] virtual Presence await(const Descriptor& end, Clock::time_point deadline) = 0;
};

// An application that was started.
struct Opening {
  Presence presence = Presence::running;
  Descriptor end;  // readable when its process has ended; may be empty
};

// The system's part of openFile(): starts an application that is not running, and waits until it
// can be reached, 10 s at most. Absent if it cannot be executed; errno says why. The caller holds
// the lock of its bundle, if the file system has locks.
[[nodiscard]] std::optional<Opening> openApplication(const Bundle& bundle,
                                                     Reachability& reachability,
                                                     Placement placement);

// The system's part of reachedProcess().
[[nodiscard]] std::optional<pid_t> processOfPeer(const std::string& bundleIdentifier);

}  // namespace qbdkr
