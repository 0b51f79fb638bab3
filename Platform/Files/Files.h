#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Base/Export.h"

namespace qbdkr {

// File operations. All of them block for as long as the file system takes, run on any thread, and
// report a failure as said; none throws for what it finds on disk.

[[nodiscard]] QBDKR_EXPORT bool fileExists(const std::string& path);

// Tell what a path leads to; links are followed.
[[nodiscard]] bool isDirectory(const std::string& path);
[[nodiscard]] bool isRegularFile(const std::string& path);

// Creates a directory and the missing ones above it; true when it exists afterwards. Those that it
// makes have the rights that the umask leaves, and all rights for their owner.
QBDKR_EXPORT bool createDirectory(const std::string& path);

// The names in a directory, in the order of the file system; absent when it cannot be listed, and
// errno says why.
[[nodiscard]] QBDKR_EXPORT std::optional<std::vector<std::string>> contentsOfDirectory(
    const std::string& path);
// The same for a directory that is open for reading.
[[nodiscard]] std::optional<std::vector<std::string>> contentsOfDirectory(int directory);

// The path of the first entry of a directory that has an extension, in the order of the file
// system; absent if no entry has it or the directory cannot be listed.
[[nodiscard]] QBDKR_EXPORT std::optional<std::string> firstEntryWithExtension(
    const std::string& directory, std::string_view extension);

// Replaces the contents of a file, or creates it with mode 0600, so that a reader sees the old
// contents or the new ones. True when the new ones are durable. One writer at a time: who may not
// be the only one holds a FileLock.
QBDKR_EXPORT bool replaceFile(const std::string& path, std::string_view contents);

// Where replaceFile() stages the contents: a file that is left there when its process is killed.
[[nodiscard]] QBDKR_EXPORT std::string stagedPath(const std::string& path);

// The path with a leading "~" replaced by the user's home directory, and "~NAME" by that of another
// user; as it is where there is no such user.
[[nodiscard]] QBDKR_EXPORT std::string expandTilde(std::string_view path);

// The extension of the last component, without the dot; "" when it has none.
[[nodiscard]] QBDKR_EXPORT std::string_view pathExtension(std::string_view path);
[[nodiscard]] QBDKR_EXPORT std::string_view lastPathComponent(std::string_view path);
[[nodiscard]] QBDKR_EXPORT std::string appendPathComponent(std::string_view path,
                                                           std::string_view component);

}  // namespace qbdkr
