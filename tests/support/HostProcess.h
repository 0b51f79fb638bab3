#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>

#include "support/ChildProcess.h"
#include "support/TestBundle.h"

namespace qbdkr::test {

// Runs a host probe.
class HostProcess {
 public:
  HostProcess(const TestBundle& bundle, const SpawnOptions& options);

  // Runs a command and returns its result. Throws at the deadline.
  std::string call(const std::string& command, std::chrono::milliseconds time = patience);

  // Do the same in two steps: begin() returns a tag for finish().
  std::string begin(const std::string& command);
  std::string finish(const std::string& tag, std::chrono::milliseconds time = patience);
  // Returns whether the result has arrived.
  [[nodiscard]] bool hasFinished(const std::string& tag) const;

  // Waits for a report to the delegate with a text in it, and returns the first.
  std::string waitForReport(const std::string& part);
  [[nodiscard]] std::size_t reportsWith(const std::string& part) const;

  // Quits as an application does.
  void quit();

  ChildProcess& process() { return process_; }
  [[nodiscard]] pid_t processID() const { return process_.processID(); }
  // Returns the identifier of its bundle.
  [[nodiscard]] const std::string& identifier() const { return identifier_; }

 private:
  std::string identifier_;
  ChildProcess process_;
  unsigned lastTag_ = 0;
};

}  // namespace qbdkr::test
