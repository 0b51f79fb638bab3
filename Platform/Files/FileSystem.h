#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <ClientComm/Export.h>

namespace qbdkr {

// The file system that a file or directory lies on.
struct FileSystem {
  std::string type;            // its name, as "ext4"; empty if it is not known
  bool holdsFiles = true;      // false for one that the kernel makes up, as "proc"
  bool isWritable = true;      // false if it is mounted read-only
  bool runsPrograms = true;    // false if it is mounted without the right to execute
  std::uint64_t freeSize = 0;  // bytes that this user may still fill
};

// Returns the file system of an existing path; absent if the system does not tell. Blocks for the
// file system, any thread.
[[nodiscard]] QBDKR_EXPORT std::optional<FileSystem> fileSystemOf(const std::string& path);

}  // namespace qbdkr
