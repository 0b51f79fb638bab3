#pragma once

#include <sys/types.h>

#include <string>

namespace qbdkr {

// Whether the executable of a process lies in a directory, or lay there before its files were
// replaced. False for a process whose executable is not shown to this one.
[[nodiscard]] bool runsFrom(pid_t processID, const std::string& directory);

}  // namespace qbdkr
