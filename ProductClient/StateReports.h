#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include <ClientComm/Status.h>
#include <QBDKRProductClient/HelperState.h>

#include "ClientComm/HostConfiguration.h"
#include "Platform/Base/ForkSafeMutex.h"
#include "Platform/Processes/RunningApplications.h"
#include "ProductClient/HelperStates.h"
#include "ProductClient/SystemCalls.h"

namespace qbdkr {

// Tells the states that the communicator's parts notice, and finds out the rest of them: the
// process, the version, the end of a pause. Without a handler it finds out nothing. Throws nothing
// unless it says otherwise. Any thread.
class StateReports {
 public:
  using Clock = std::chrono::steady_clock;

  struct Sources {
    std::function<bool()> isServerClosed;
    // Returns the time before which the helper agent may not be started.
    std::function<std::optional<Clock::time_point>()> pausedUntil;
  };

  StateReports(HostConfiguration configuration, const SystemCalls& system, HelperStates& states,
               Sources sources);

  // Sets the handler, and finds out the state on a thread of its own if it is unknown. Throws
  // std::bad_alloc.
  void setHandler(HelperStateHandler handler);
  // Tells that the start-up does not launch the helper agent, or is about to tell how that ended:
  // from now on an unknown state is found out.
  void endStartUp() { isStartingUp_ = false; }

  // A check ended with this status, and began after that moment. Blocks likewise if that is news.
  void answered(OSErr status, HelperStates::Moment before) noexcept;
  // A launch has failed. Blocks for the bus and files.
  void launchFailed() noexcept;
  // An installation has ended that no launch follows. Blocks likewise.
  void installed() noexcept;
  // It was opened, or runs already. Blocks likewise if that is news.
  void launched() noexcept;
  // A request reaches it. Blocks likewise if that is news.
  void found() noexcept;

 private:
  // Tells whether the process that was told last still runs.
  [[nodiscard]] bool isTold();
  [[nodiscard]] std::optional<HelperRunning> process();
  void findOut() noexcept;
  template <class Otherwise>
  void find(HelperStates::Moment since, const Otherwise& otherwise) noexcept;

  const HostConfiguration configuration_;
  const std::function<bool(std::function<void()>)> startThread_;
  const std::function<std::optional<pid_t>(const std::string&)> reachedProcess_;
  HelperStates& states_;
  const Sources sources_;
  std::atomic<bool> isStartingUp_{true};

  ForkSafeMutex mutex_;
  std::optional<HeldProcess> held_;  // the process that was found last
};

}  // namespace qbdkr
