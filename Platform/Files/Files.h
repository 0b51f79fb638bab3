#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <ClientComm/Export.h>

namespace qbdkr {

// File operations. Each runs on any thread, blocks for the file system unless it only handles text,
// and throws for nothing that it finds on disk.

// Tells whether a path leads to anything; links are followed.
[[nodiscard]] QBDKR_EXPORT bool fileExists(const std::string& path);

// Tell the type of the file at a path; links are followed.
[[nodiscard]] bool isDirectory(const std::string& path);
[[nodiscard]] bool isRegularFile(const std::string& path);

// Creates a directory and the missing ones above it; true if it exists afterwards. New directories
// have the rights that the umask leaves, and all rights for their owner.
QBDKR_EXPORT bool createDirectory(const std::string& path);

// Returns the names in a directory, without "." and "..", in the order of the file system. Absent
// if it cannot be listed; errno says why.
[[nodiscard]] QBDKR_EXPORT std::optional<std::vector<std::string>> contentsOfDirectory(
    const std::string& path);
// Does the same for a directory that is open for reading, and leaves it open.
[[nodiscard]] std::optional<std::vector<std::string>> contentsOfDirectory(int directory);

// Returns the path of the first entry of a directory that has an extension, in the order of the
// file system; absent if no entry has it or the directory cannot be listed.
[[nodiscard]] QBDKR_EXPORT std::optional<std::string> firstEntryWithExtension(
    const std::string& directory, std::string_view extension);

// Returns the contents of a regular file that is open for reading, from its start. Reads to the
// end, whatever size was reported: the file may be growing or shrinking. Absent if it cannot be
// read; errno says why, and is EFBIG if it has more than `most` bytes.
[[nodiscard]] std::optional<std::string> contentsOfFile(int file, std::size_t most);

// Makes the contents of a file, or the entries of a directory, durable. False if that failed.
bool flushItem(const std::string& path);

// Replaces a file by a new one of mode 0600, or creates it: a reader sees the old contents or the
// new ones. True if the new ones are durable; false as well if they are in place but could not be
// flushed. One writer at a time: hold a FileLock if there may be another.
QBDKR_EXPORT bool replaceFile(const std::string& path, std::string_view contents);
// Does the same with the parts of the contents, one after the other.
bool replaceFile(const std::string& path, std::initializer_list<std::string_view> parts);

// Returns the path at which replaceFile() stages the contents. A process that is killed may leave a
// file there.
[[nodiscard]] QBDKR_EXPORT std::string stagedPath(const std::string& path);

// Returns the path with a leading "~" replaced by the home directory of this user, and "~NAME" by
// that of another user; unchanged if the user does not exist. May read the user database.
[[nodiscard]] QBDKR_EXPORT std::string expandTilde(std::string_view path);

// Returns the extension of the last component, without the dot; "" if it has none.
[[nodiscard]] QBDKR_EXPORT std::string_view pathExtension(std::string_view path);
// Returns the last component, without trailing slashes; "/" for the root.
[[nodiscard]] QBDKR_EXPORT std::string_view lastPathComponent(std::string_view path);
// Joins a path and a component by one slash. Returns the component if the path is empty.
[[nodiscard]] QBDKR_EXPORT std::string appendPathComponent(std::string_view path,
                                                           std::string_view component);

}  // namespace qbdkr
