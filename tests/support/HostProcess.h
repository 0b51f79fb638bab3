#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>

#include "support/ChildProcess.h"
#include "support/TestBundle.h"

namespace qbdkr::test {

// A running host probe.
class HostProcess {
 public:
  HostProcess(const TestBundle& bundle, const SpawnOptions& options);

  // Runs a command to its end and gives its result; throws at the deadline.
  std::string call(const std::string& command, std::chrono::milliseconds time = patience);

  // The same in two halves.
  std::string begin(const std::string& command);
  std::string finish(const std::string& tag, std::chrono::milliseconds time = patience);
  // Whether the result is there already.
  [[nodiscard]] bool hasFinished(const std::string& tag) const;

  // Waits for the next report to the delegate that holds a text.
  std::string waitForReport(const std::string& part);
  [[nodiscard]] std::size_t reportsWith(const std::string& part) const;

  // Ends as an application does.
  void quit();

  ChildProcess& process() { return process_; }
  [[nodiscard]] pid_t processID() const { return process_.processID(); }
  // Of its bundle.
  [[nodiscard]] const std::string& identifier() const { return identifier_; }

 private:
  std::string identifier_;
  ChildProcess process_;
  unsigned lastTag_ = 0;
};

}  // namespace qbdkr::test
