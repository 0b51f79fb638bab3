#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace qbdkr {

// Returns the link through which the system shows the executable of a process.
[[nodiscard]] std::string linkOfExecutable(pid_t processID);

// Returns the path that the system shows for the executable of a process; absent if the process has
// ended, or if this one may not see it.
[[nodiscard]] std::optional<std::string> executableOfProcess(pid_t processID);

// Tells whether the executable of a process lies in a directory, or lay there before its files were
// replaced. False if this process may not see the executable.
[[nodiscard]] bool runsFrom(pid_t processID, const std::string& directory);

}  // namespace qbdkr
