#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Export.h"

namespace qbdkr {

// File operations. All of them block for as long as the file system takes, run on any thread, and
// report a failure as said; none throws for what it finds on disk.

[[nodiscard]] QBDKR_EXPORT bool fileExists(const std::string& path);

// Creates a directory and the missing ones above it; true when it exists afterwards.
QBDKR_EXPORT bool createDirectory(const std::string& path);

// The names in a directory, in the order of the file system; absent when it cannot be listed.
[[nodiscard]] QBDKR_EXPORT std::optional<std::vector<std::string>> contentsOfDirectory(
    const std::string& path);

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

// Replaces the contents of a file, or creates it with mode 0600, so that a reader sees the old
// contents or the new ones. True when the new ones are durable. One writer at a time: who may not
// be the only one holds a FileLock.
QBDKR_EXPORT bool replaceFile(const std::string& path, std::string_view contents);

// Writes new contents over those of a file that exists, which stays the same file: owner, mode and
// links are kept. Not atomic: a reader meanwhile, and a crash, may meet both contents mixed. True
// when the new ones are durable. False, with the old ones untouched, when it cannot be opened for
// reading and writing, is no file, or has no room to grow; only where the file system cannot set
// room aside, or fails in the middle, may a failure leave a part of the new ones over the old.
QBDKR_EXPORT bool rewriteFile(const std::string& path, std::string_view contents);

// The path with a leading "~" replaced by the user's home directory, and "~NAME" by that of another
// user; as it is where there is no such user.
[[nodiscard]] QBDKR_EXPORT std::string expandTilde(std::string_view path);

// The extension of the last component, without the dot; "" when it has none.
[[nodiscard]] QBDKR_EXPORT std::string_view pathExtension(std::string_view path);
[[nodiscard]] QBDKR_EXPORT std::string_view lastPathComponent(std::string_view path);
[[nodiscard]] QBDKR_EXPORT std::string appendPathComponent(std::string_view path,
                                                           std::string_view component);

// An advisory lock between processes on a file or directory that exists. Released by its
// destruction, and by the end of the process however it ends.
class QBDKR_EXPORT FileLock {
 public:
  // Waits for the lock at most this long. Absent when it could not be had.
  static std::optional<FileLock> acquire(const std::string& path,
                                         std::chrono::milliseconds patience);

  FileLock(FileLock&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileLock& operator=(FileLock&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~FileLock();

 private:
  explicit FileLock(int descriptor) : descriptor_(descriptor) {}
  int descriptor_;
};

}  // namespace qbdkr
