#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace qbdkr {

// What Files.cpp asks of the system beyond POSIX.

// Renames unless something is at the new path already. Absent where the file system cannot do both
// at once.
[[nodiscard]] std::optional<bool> renameExclusively(const std::string& from, const std::string& to);

// Copies a regular file with all that the system's own copies carry along, to where nothing is.
[[nodiscard]] bool copyRegularFile(const std::string& from, const std::string& to);

// What a directory carries along beyond its mode.
[[nodiscard]] bool copyDirectoryAttributes(const std::string& from, const std::string& to);

// Waits until the contents of a file or directory are durable.
[[nodiscard]] bool flushDescriptor(int file);

// Sets room aside for a file's first bytes, without a change that a reader could see. True as well
// on a file system that cannot: there it is had or not when it is written to.
[[nodiscard]] bool setRoomAside(int file, off_t size);

}  // namespace qbdkr
