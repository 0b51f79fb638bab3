#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include <ClientComm/Export.h>

namespace qbdkr {

// Tells where the process of an application that is started belongs: with the host, or into a scope
// of its own of the user's service manager. That is ended apart from the service that the host may
// be. Without a service manager, as on macOS, both are the same.
enum class Placement { withHost, ownScope };

// Makes sure that an application is open: starts it, detached from this process, unless it is
// running or being opened already, from any process. It is running if any process runs an
// application of its identifier, or its own executable, or was started from it by this process, or
// if events reach it. If
// it is just starting or ending by itself, waits for that, 5 s at most, and starts it again after
// its end.
//
// Blocks until the application can be reached, or for 10 s, and for the system to execute it, which
// has no limit on a file system that hangs; before that, for 15 s at most while
// another process opens or replaces it. If another thread of this process is at the same bundle,
// waits for that thread, 30 s at most, and takes its outcome. False if it is not running and cannot
// be executed, ends before it can be reached, cannot be looked for among the processes, is locked
// by another process all that time, or is held back because it keeps ending. Calls onStart, if that
// is not empty, right before it starts a process. A placement in a scope of its own takes 5 s more
// at most, and does not fail the start: the record tells why it did not come about. Any thread.
[[nodiscard]] QBDKR_EXPORT bool openFile(const std::string& bundlePath,
                                         const std::function<void()>& onStart = {},
                                         Placement placement = Placement::withHost);

// Returns the time before which openFile() does not start an application, because it ended before
// it could be reached, five times within 10 s. The first pause takes 1 s, each further one twice as
// long, up to 60 s. Absent if the application may be started. Does not wait. Any thread.
[[nodiscard]] QBDKR_EXPORT std::optional<std::chrono::steady_clock::time_point> openingPausedUntil(
    const std::string& bundlePath);

// Returns the process that events to an application reach, whatever its executable is. Absent if
// they reach no process, or if the system does not tell. Blocks for the bus, 5 s at most. Any
// thread.
[[nodiscard]] QBDKR_EXPORT std::optional<pid_t> reachedProcess(const std::string& bundleIdentifier);

}  // namespace qbdkr
