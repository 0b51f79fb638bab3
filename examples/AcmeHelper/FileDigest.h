#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

namespace acme {

struct FileDigest {
  std::int64_t size = 0;  // bytes
  std::string sha256;     // 64 hexadecimal digits
};

// Reads a file of at most 64 GiB to its end, which may take long. Absent when it was told to stop.
// Throws std::runtime_error, with the reason, when there is no such file or it cannot be read.
std::optional<FileDigest> digestOf(const std::string& path, const std::atomic<bool>& stop);

}  // namespace acme
