#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace qbdkr {

// The path that the system shows for what a process runs; absent for one that has ended, and for
// one that this process may not look into.
[[nodiscard]] std::optional<std::string> executableOfProcess(pid_t processID);

// Whether the executable of a process lies in a directory, or lay there before its files were
// replaced. False for a process whose executable is not shown to this one.
[[nodiscard]] bool runsFrom(pid_t processID, const std::string& directory);

}  // namespace qbdkr
