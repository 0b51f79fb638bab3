#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/Files/FileError.h"

namespace qbdkr {

// Files and whole trees that come and go at once. All of it blocks for as long as the file system
// takes, runs on any thread, and throws for nothing that it finds on disk.

// Removes a file or a whole tree. It leaves its place at once and as a whole: a reader, or a later
// start after a crash, never meets half of it. Absent on success, else what went wrong, and where
// in the tree; then everything is in its place. Rights are judged as those of the effective user,
// before anything is moved. A directory that this user owns counts as writable. What turns out not
// to be removable after that stays beside the place under a hidden name, and the next work on this
// path tries again.
[[nodiscard]] QBDKR_EXPORT std::optional<FileError> removeItem(const std::string& path);

// Where something lay before removeItem() took it away, for a path below that place as a process
// that still uses it shows it; any other path as it is.
[[nodiscard]] std::string pathBeforeRemoval(std::string_view path);

// Copies a file or a whole tree to a path where nothing is yet. A link that is given is followed; a
// link in the tree is copied as a link. Modes, holes, modification times and extended attributes of
// users are kept as far as both file systems have them, except that directories stay writable for
// their owner, and that set-ID bits are dropped from a file that gets another owner or group. It
// appears at once, as a whole and durable; after a failure or a crash there is nothing. Absent if
// this call put it there, else what went wrong, and where: below the tree to be copied, or the new
// path. Refused are anything but files, directories and links (EOPNOTSUPP), a file that changes
// meanwhile (EBUSY), a place inside of the tree (EINVAL), and more than 256 levels (ENAMETOOLONG).
[[nodiscard]] QBDKR_EXPORT std::optional<FileError> copyItem(const std::string& from,
                                                             const std::string& to);

// Removes what an interrupted removal or copy of this path has left beside it.
QBDKR_EXPORT void clearInterrupted(const std::string& path);

}  // namespace qbdkr
