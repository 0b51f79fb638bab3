#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <ClientComm/Export.h>

#include "Platform/Files/CopyProgress.h"
#include "Platform/Files/FileError.h"

namespace qbdkr {

// Remove and copy files and whole trees, each at once. Every call blocks for the file system, runs
// on any thread, and throws for nothing that it finds on disk.

// Removes a file or a whole tree. It disappears at once and as a whole: a reader, or a later start
// after a crash, never finds half of it. Absent on success, else the error and the file in the tree
// that caused it; then everything is still in place. The effective user's permissions are checked
// before anything moves. A directory that this user owns counts as writable. Anything that turns
// out not to be removable after the move stays beside the path under a hidden name, and the next
// work on this path tries again.
[[nodiscard]] QBDKR_EXPORT std::optional<FileError> removeItem(const std::string& path);

// Returns why removeItem() would refuse a path; absent if it can be expected to succeed. Changes
// nothing.
[[nodiscard]] QBDKR_EXPORT std::optional<FileError> removalObstacleOf(const std::string& path);

// Returns the original path of a file in a tree that removeItem() moved away, for the path that a
// process still using the file shows. Returns any other path unchanged.
[[nodiscard]] std::string pathBeforeRemoval(std::string_view path);

// Copies a file or a whole tree to a path that does not exist yet. Follows a link at the path to
// copy; copies a link in the tree as a link. Keeps modes, holes, modification times and users'
// extended attributes as far as both file systems have them. Directories stay writable for their
// owner; on Linux, a file that gets another owner or group loses its set-ID bits. The copy appears
// at once, as a whole and durable; after a failure or a crash the path does not exist. Absent if
// this call made the copy, else the error and its path: one in the tree to copy, or the new path.
// Refuses anything but files, directories and links (EOPNOTSUPP), a new path that exists (EEXIST)
// or lies in the tree (EINVAL), more than 256 levels (ENAMETOOLONG), and on Linux a file that
// changes during the copy (EBUSY).
[[nodiscard]] QBDKR_EXPORT std::optional<FileError> copyItem(const std::string& from,
                                                             const std::string& to,
                                                             const CopyProgress& progress = {});

// Returns the number of bytes that copyItem() tells its progress in all: the sizes of the files of
// a tree, or of one file. Leaves out what cannot be read.
[[nodiscard]] QBDKR_EXPORT std::uint64_t sizeOfItem(const std::string& path);

// A copy that takes the place of an older item, in two steps: the first takes long and may fail,
// and the older item stays in use until the second. The destructor removes the copy, or the older
// item.
class QBDKR_EXPORT ItemReplacement {
 public:
  ItemReplacement();
  ItemReplacement(const ItemReplacement&) = delete;
  ItemReplacement& operator=(const ItemReplacement&) = delete;
  ~ItemReplacement();

  // Makes the copy beside the path of the older item, as copyItem() does; absent on success.
  [[nodiscard]] std::optional<FileError> prepare(const std::string& from, const std::string& to,
                                                 const CopyProgress& progress = {});

  // Exchanges both at once; absent on success. Takes a file system that can: elsewhere the older
  // item is removed first, and a failure or a crash in between leaves none.
  [[nodiscard]] std::optional<FileError> exchange();

 private:
  class Copy;
  std::unique_ptr<Copy> copy_;  // from prepare() on
};

// Removes anything that an interrupted removal or copy of this path left beside it. Leaves work in
// progress alone.
QBDKR_EXPORT void clearInterrupted(const std::string& path);

// Returns the names of such leftovers, and of work in progress, in the directory of the path.
[[nodiscard]] QBDKR_EXPORT std::vector<std::string> unfinishedWorkOn(const std::string& path);

}  // namespace qbdkr
