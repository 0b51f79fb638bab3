#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include <ClientComm/Bundle.h>

#include "Platform/Base/Descriptor.h"

namespace qbdkr {

// The state of an application after a wait: events reach it, or it runs and they do not, or it has
// ended.
enum class Presence { reachable, running, ended };

// An application that was started.
struct Opening {
  Presence presence = Presence::running;
  Descriptor end;  // readable when its process has ended; may be empty
};

// The system's part of openFile(): starts an application that is not running, and waits until it
// can be reached, 10 s at most. Absent if it cannot be executed. The caller holds the lock of its
// bundle, if the file system has locks.
[[nodiscard]] std::optional<Opening> openApplication(const Bundle& bundle);

// Tells whether events reach an application, whatever process that is. False if the system cannot
// tell by the deadline.
[[nodiscard]] bool isReachable(const Bundle& bundle,
                               std::chrono::steady_clock::time_point deadline);

// Waits until an application that runs can be reached or has ended. It is reachable at once if the
// system cannot tell.
[[nodiscard]] Presence awaitPresence(const Bundle& bundle, const Descriptor& end,
                                     std::chrono::steady_clock::time_point deadline);

// The system's part of reachedProcess().
[[nodiscard]] std::optional<pid_t> processOfPeer(const std::string& bundleIdentifier);

}  // namespace qbdkr
