#pragma once

#include <functional>

#include "ClientComm/HostConfiguration.h"
#include "ProductClient/SystemCalls.h"

namespace qbdkr {

// Makes sure that the installed helper agent runs. Any thread.
class HelperLauncher {
 public:
  // Calls install if nothing is installed, and repair if the installed copy cannot be opened; that
  // returns true if another attempt may succeed.
  HelperLauncher(HostConfiguration configuration, SystemCalls system, std::function<void()> install,
                 std::function<bool()> repair);

  // Opens the helper agent unless it runs. False if its name or directory is missing, or it cannot
  // be opened. Blocks as QBHPHelperCommunicate::launchHelepr() does until startHelper().
  [[nodiscard]] bool launch();

 private:
  HostConfiguration configuration_;
  SystemCalls system_;
  std::function<void()> install_;
  std::function<bool()> repair_;
};

}  // namespace qbdkr
