#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Export.h"

namespace qbdkr {

// Files and whole trees that come and go at once. All of it blocks for as long as the file system
// takes, runs on any thread, and throws for nothing that it finds on disk.

// Removes a file or a whole tree. It leaves its place at once and as a whole: a reader, or a later
// start after a crash, never meets half of it. Absent on success, else what went wrong.
[[nodiscard]] QBDKR_EXPORT std::optional<std::string> removeItem(const std::string& path);

// Where something lay before removeItem() took it away, for a path below that place as a process
// that still uses it shows it; any other path as it is.
[[nodiscard]] std::string pathBeforeRemoval(std::string_view path);

// Copies a file or a whole tree (modes and links kept) to a path where nothing is yet. It appears
// at once and as a whole; after a failure or a crash there is nothing. True when this call put it
// there.
QBDKR_EXPORT bool copyItem(const std::string& from, const std::string& to);

// Removes what an interrupted removal or copy of this path has left beside it.
QBDKR_EXPORT void clearInterrupted(const std::string& path);

}  // namespace qbdkr
