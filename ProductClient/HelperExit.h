#pragma once

#include <atomic>
#include <functional>

#include "ClientComm/HostConfiguration.h"
#include "Platform/Processes/RunningApplications.h"
#include "ProductClient/SystemCalls.h"

namespace qbdkr {

// Ends a running helper agent. Any thread.
class HelperExit {
 public:
  // Calls ask to post the exit request.
  HelperExit(HostConfiguration configuration, SystemCalls system, std::function<void()> ask);

  // Lets it use force from now on.
  void allowForce() { isForceAllowed_ = true; }

  // Asks the helper agent to exit if it runs, and waits for the end of its process, 5 s at most.
  // With force, sends it SIGTERM after 2 s, and SIGKILL after 1.5 s more.
  void end();

  // Does the same with force, for the processes of this user whose executables lie in the installed
  // copy, and calls a function first. False, and calls nothing, if none of them runs.
  bool endByForce(
      WhichProcesses which, const std::function<void()>& onFound = [] {});

 private:
  HostConfiguration configuration_;
  SystemCalls system_;
  std::function<void()> ask_;
  std::atomic<bool> isForceAllowed_{false};
};

}  // namespace qbdkr
