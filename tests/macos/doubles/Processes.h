#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

// The processes of NativeProcesses.h, all of which run applications.
namespace doubles {

struct Application {
  pid_t process;
  std::string identifier;
  std::optional<bool> hasCheckedIn;
};

struct Processes {
  std::vector<Application> applications;
  std::function<void(int)> onLook;  // called with the number of each look at an application
  int looks = 0;

  static Processes& shared();
};

}  // namespace doubles
