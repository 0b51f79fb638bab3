#pragma once

#include <poll.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Events/RPCEvent.h"

namespace qbdkr {

// The sender or the target of an event, as far as the system tells.
struct WatchedParty {
  std::string name;        // on the bus
  std::string identifier;  // the bundle identifier; empty if it is unknown, or not an application
  std::optional<pid_t> process;
  std::string program;  // the path of the executable; empty if it is unknown
};

// An event between any two processes, and its outcome.
struct WatchedEvent {
  enum class Outcome { posted, answered, failed, unanswered };

  std::chrono::system_clock::time_point time;
  WatchedParty sender;
  WatchedParty target;
  RPCEvent event;  // without names if the call is malformed
  Outcome outcome = Outcome::posted;
  std::string error;                     // its name, of one that failed
  std::string text;                      // the result, the error's text, or why no answer is known
  std::chrono::microseconds duration{};  // from the call to the answer or the error
};

struct EventWatch {
  // Select events; an empty text selects all. The application is their sender or their target.
  std::string application;
  std::string className;
  std::string methodName;
  // End the watch: this time, or one of these descriptors when poll() reports it.
  std::optional<std::chrono::steady_clock::time_point> deadline;
  std::vector<pollfd> stops;
  // Called once, when no later event will be missed.
  std::function<void()> onReady;
  // Called with an event when its outcome is known: at once for a post, after 10 s at the latest,
  // and at the end of the watch. False ends the watch.
  std::function<bool(const WatchedEvent& event)> onEvent;
};

// Watches all events on this user's bus until the watch ends, on the calling thread. Those that
// would take direct connections go over the bus meanwhile. Returns a
// sentence if it cannot begin, or the bus ends it; else nothing. Keeps at most 1,024 events and
// 16 MiB of their texts while it waits for their answers.
[[nodiscard]] std::optional<std::string> watchEvents(const EventWatch& watch);

}  // namespace qbdkr
