#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "Platform/Files/FileError.h"

namespace qbdkr {

// The most levels of directories that a tree may have: its walks are recursive.
inline constexpr std::size_t deepestTree = 256;

// Returns the first obstacle to removing the contents of a directory, at any depth; absent if
// removeTree() can be expected to remove it all. Changes nothing. A directory that cannot be listed
// is an obstacle: nothing is known of its contents.
[[nodiscard]] std::optional<FileError> removalObstacle(const std::string& directory);

// Removes a file or a whole tree, or as much of it as possible.
void removeTree(const std::string& path);

// Lets the owner of a directory of this mode list and change it. Has no effect for other users.
void openToOwner(int parent, const std::string& name, unsigned mode);

}  // namespace qbdkr
