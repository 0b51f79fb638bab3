#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "Platform/Base/Descriptor.h"

namespace qbdkr {

// A process that was started in a session of its own, inherits no descriptor, survives this one and
// leaves no zombie to it. The descriptor becomes readable when it ends.
struct DetachedProcess {
  pid_t processID = 0;
  Descriptor ended;
};

// Starts an executable without arguments, with the root as its working directory, and its output in
// the journal if that is available. Waits until it is executed. Absent with errno if it cannot be
// executed.
std::optional<DetachedProcess> startDetached(const std::string& executable);

}  // namespace qbdkr
