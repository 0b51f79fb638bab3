#pragma once

#include <CoreServices/CoreServices.h>

#include <functional>
#include <vector>

// Launch Services, which only notes how it was called.
namespace doubles {

struct LaunchServices {
  std::vector<LSLaunchFlags> launches;  // the flags of each
  std::function<OSStatus()> launch;     // what a launch does

  static LaunchServices& shared();
};

}  // namespace doubles
