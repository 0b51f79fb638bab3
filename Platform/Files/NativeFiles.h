#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace qbdkr {

// The calls beyond POSIX that files and trees need from the system.

// Renames unless something is at the new path already. Absent where the file system cannot do both
// at once.
[[nodiscard]] std::optional<bool> renameExclusively(const std::string& from, const std::string& to);

// Copies a regular file with all that the system's own copies carry along, to where nothing is. Of
// this and of each call below errno says what went wrong.
[[nodiscard]] bool copyRegularFile(const std::string& from, const std::string& to);

// Copies a symbolic link as a link, to where nothing is.
[[nodiscard]] bool copyLink(const std::string& from, const std::string& to);

// Copies the attributes of a directory beyond its mode and its times.
[[nodiscard]] bool copyDirectoryAttributes(const std::string& from, const std::string& to);

// Gives a directory the modification time of another. True as well on a file system that takes
// none.
[[nodiscard]] bool copyModificationTime(const std::string& from, const std::string& to);

// The error with which the system refuses to remove an entry of a directory for what it is: it is
// immutable, or something is mounted there. 0 if it does not, or if the system does not tell.
[[nodiscard]] int removalRefusal(int directory, const std::string& name);

// Waits until everything that was written to a tree is durable. The descriptor is that of the
// directory above it, opened before the first write.
[[nodiscard]] bool flushTree(int directory, const std::string& tree);

// Waits until the contents of a file or directory are durable.
[[nodiscard]] bool flushDescriptor(int file);

// Sets room aside for a file's first bytes, without a change that a reader could see. Unknown on a
// file system that cannot: it has the room or not when the file is written.
enum class Room { setAside, missing, unknown };
[[nodiscard]] Room setRoomAside(int file, off_t size);

}  // namespace qbdkr
