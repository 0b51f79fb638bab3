#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Base/Descriptor.h"

namespace qbdkr {

// A process that was started in a session of its own, inherits no descriptor, survives this one and
// leaves no zombie to it. The descriptor becomes readable when it ends.
struct DetachedProcess {
  pid_t processID = 0;
  Descriptor ended;
  int notPlaced = 0;  // an errno value if it could not be held back, and place was not called
};

// The descriptors of a process's standard streams.
struct StandardStreams {
  Descriptor input;
  Descriptor output;
  Descriptor error;  // if empty, errors go to the output
};

// Starts a command, whose first word is the path of an executable, with the root as its working
// directory. Waits until it is executed. Absent with errno if it cannot be executed.
std::optional<DetachedProcess> startDetached(std::vector<std::string> command,
                                             std::vector<std::string> environment,
                                             StandardStreams streams);

// Starts an executable without arguments in the environment of this process, with its output in the
// journal if that is available. Calls place, if that is not empty, on a thread of its own with the
// process before it is executed, and has it executed when that returns, after 10 s, or when this
// process ends: so no code of the application runs, and no child of it is made, at another place.
std::optional<DetachedProcess> startDetached(const std::string& executable,
                                             const std::function<void(pid_t)>& place = {});

}  // namespace qbdkr
