#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/qbhp/Command.h"

namespace qbdkr::tool {

struct TrialEvent {
  std::string className;
  std::string method;
  std::vector<std::string> arguments;
};

struct TrialAnswer {
  enum class Kind { text, noText, error, late };
  Kind kind;
  std::string text;  // the answer, or the name of the error
};

struct TrialReport {
  TrialEvent event;
  bool isToTheHost;    // and not to the connection that sends
  std::string sender;  // the bundle identifier; empty if the process has none, or has ended
};

// Runs a helper agent on a private bus, in a home of its own, and plays its host there. Every wait
// ends after the longest time that a trial was made with.
class HelperTrial {
 public:
  // Starts the bus in a directory. Throws Failure.
  [[nodiscard]] static std::unique_ptr<HelperTrial> make(const std::string& directory,
                                                         const std::string& helperBundle,
                                                         std::chrono::milliseconds longest);
  HelperTrial() = default;
  HelperTrial(const HelperTrial&) = delete;
  HelperTrial& operator=(const HelperTrial&) = delete;
  virtual ~HelperTrial() = default;

  // Launches the helper agent and waits for its name; kills the former process first. Returns the
  // fault if it does not claim its name.
  [[nodiscard]] virtual std::optional<std::string> launch() = 0;
  // Tells whether the process runs and owns its name.
  [[nodiscard]] virtual bool isRunning() = 0;
  // Returns how the process ended.
  [[nodiscard]] virtual std::string ending() = 0;
  virtual void signal(int number) = 0;
  // Waits until the process has ended, and takes reports. Returns whether it has.
  [[nodiscard]] virtual bool hasEnded() = 0;

  // Returns the bundle identifier of the process that owns the name, as a host learns it.
  [[nodiscard]] virtual std::string identifierOfOwner() = 0;
  // Tells whether another process could take the name away. Gives it back.
  [[nodiscard]] virtual bool canBeReplaced() = 0;

  // Sends an event, and waits for its answer. Takes no reports.
  [[nodiscard]] virtual TrialAnswer ask(const TrialEvent& event) = 0;
  virtual void post(const TrialEvent& event) = 0;
  // Asks with an argument list that is no event's.
  [[nodiscard]] virtual TrialAnswer askMalformed() = 0;
  // Asks from a process that belongs to no bundle.
  [[nodiscard]] virtual TrialAnswer askFromOutside(const TrialEvent& event) = 0;
  [[nodiscard]] virtual TrialAnswer introspect() = 0;
  [[nodiscard]] virtual TrialAnswer flush() = 0;

  // Waits until that many reports of a method have come, and returns all of it; fewer in the end.
  [[nodiscard]] virtual std::vector<TrialReport> awaitReports(const std::string& method,
                                                              std::size_t count) = 0;
  virtual void forgetReports() = 0;
  // Leave the bus, and come back as a new process of the host would.
  virtual void leave() = 0;
  virtual void restartHost() = 0;
};

// Runs a body in a child process, with a private directory. Ends everything that the child has
// started, and removes the directory; so it does on SIGINT, SIGTERM and SIGHUP, which then end this
// process as well. Throws Failure.
[[nodiscard]] Exit runGuarded(const std::function<Exit(const std::string& directory)>& body);

}  // namespace qbdkr::tool
