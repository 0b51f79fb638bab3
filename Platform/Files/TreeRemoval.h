#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "Platform/Files/FileError.h"

namespace qbdkr {

// The most levels of directories that a tree may have: its walks are recursive.
inline constexpr std::size_t deepestTree = 256;

// What keeps this process from removing something in a directory, however deep; absent if
// removeTree() can be expected to remove it all. Changes nothing. An error of a directory that
// cannot be listed counts: nothing is known of its contents.
[[nodiscard]] std::optional<FileError> removalObstacle(const std::string& directory);

// Removes a file or a whole tree, and as much as it can of one that it cannot remove whole.
void removeTree(const std::string& path);

// Lets the owner of a directory list and change it, where the owner is this process's user.
void openToOwner(int parent, const std::string& name, unsigned mode);

}  // namespace qbdkr
