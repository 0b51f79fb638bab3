#pragma once

#include <functional>

#include "ClientComm/HostConfiguration.h"
#include "ProductClient/SystemCalls.h"

namespace qbdkr {

// Makes sure that the installed helper agent runs. Any thread.
class HelperLauncher {
 public:
  struct Actions {
    std::function<void()> install;   // called if nothing is installed
    std::function<void()> announce;  // called right before a process is started
    // Called if the installed copy cannot be opened; true if another attempt may succeed.
    std::function<bool()> repair;
  };

  HelperLauncher(HostConfiguration configuration, SystemCalls system, Actions actions);

  // Opens the helper agent unless it runs. False if its name or directory is missing, or it cannot
  // be opened. Blocks as QBHPHelperCommunicate::launchHelepr() does until startHelper().
  [[nodiscard]] bool launch();

 private:
  HostConfiguration configuration_;
  SystemCalls system_;
  Actions actions_;
};

}  // namespace qbdkr
