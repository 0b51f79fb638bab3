#pragma once

#include <chrono>
#include <functional>

#include <ClientComm/Export.h>

namespace qbdkr {

// Let a helper agent end by itself. All of it is off until it is called, and costs nothing then.
// Call it when the process starts, before the main run loop runs: senders that came and went
// earlier are not remembered.
//
// Each action is called once, on the main run loop; without one, RunLoop::main().stop() is called,
// so that main() returns. A process with another main loop, as of GLib or Qt, gives an action that
// ends that one. Call the function again to watch on. A later call replaces an earlier
// one, and a time of 0 or less switches the watch off. An exception of an action is dropped. Any
// thread; they do not wait. They throw as RunLoop::main() does, and if memory runs out.

// Calls the action when for that time no event came and no host was there. A host is there while a
// process that sent an event to this one is on the bus, or on macOS while an application with the
// bundle identifier of a sender runs. Hosts that a restarted bus separated count as gone until they
// send again, as they do every 60 s: give longer than that.
QBDKR_EXPORT void endWhenIdle(std::chrono::milliseconds time, std::function<void()> action = {});

// Calls the action when the session bus went away and did not come back for that time, or did not
// come for that time after the call. Has no effect on macOS, where no bus can go away.
QBDKR_EXPORT void endWithBus(std::chrono::milliseconds grace, std::function<void()> action = {});

// Runs the main run loop until every event that had come for this process by the time of the call
// was handled, but not beyond the deadline. For a process that was told to end: what hosts posted
// before is served, and nothing is waited for that may never come. Returns false at the deadline.
// Main thread only, and not from inside a method that an event called.
QBDKR_EXPORT bool serveWhatHasCome(std::chrono::steady_clock::time_point deadline);

}  // namespace qbdkr
