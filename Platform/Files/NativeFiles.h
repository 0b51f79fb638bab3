#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "Platform/Files/CopyProgress.h"
#include "Platform/Files/FileSystem.h"

namespace qbdkr {

// The bits of st_mode beside the type.
inline constexpr mode_t modeBits = 07777;

// The calls beyond POSIX that files and trees need from the system.

// Renames a file unless the new path exists; false with errno on failure. Absent if the file system
// cannot check and rename at once.
[[nodiscard]] std::optional<bool> renameExclusively(const std::string& from, const std::string& to);

// Exchanges two files or directories at once; false with errno on failure. Absent if the file
// system cannot.
[[nodiscard]] std::optional<bool> exchangeItems(const std::string& one, const std::string& other);

// Copies a regular file, with all that the system's own copies keep, to a path that does not exist.
// If this or a call below returns false, errno says why.
[[nodiscard]] bool copyRegularFile(const std::string& from, const std::string& to,
                                   const CopyProgress& progress);

// Copies a symbolic link as a link, to a path that does not exist.
[[nodiscard]] bool copyLink(const std::string& from, const std::string& to);

// Copies the attributes of a directory beyond its mode and its times.
[[nodiscard]] bool copyDirectoryAttributes(const std::string& from, const std::string& to);

// Gives a directory the modification time of another. True as well if the file system does not
// store it.
[[nodiscard]] bool copyModificationTime(const std::string& from, const std::string& to);

// Returns the error with which the system refuses to remove an entry of a directory because of the
// entry itself: it is immutable, or a mount point. 0 if it does not, or if the system does not
// tell.
[[nodiscard]] int removalRefusal(int directory, const std::string& name);

// Waits until everything that was written to a tree is durable. The descriptor is that of the
// directory above it, opened before the first write.
[[nodiscard]] bool flushTree(int directory, const std::string& tree);

// Writes what lies below a directory so far, and waits for that, if the system can do so at once:
// flushTree() then takes less time. A failure is left for that to tell.
void writeSoFar(const std::string& directory);

// Waits until the contents of a file or directory are durable.
[[nodiscard]] bool flushDescriptor(int file);

// Reserves space for a file's first bytes, without a change that a reader could see. Unknown if the
// file system cannot: only the write shows whether it has the space.
enum class Room { setAside, missing, unknown };
[[nodiscard]] Room setRoomAside(int file, off_t size);

// Does the work of fileSystemOf().
[[nodiscard]] std::optional<FileSystem> nativeFileSystemOf(const std::string& path);

}  // namespace qbdkr
