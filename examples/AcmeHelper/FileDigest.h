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

// Reads a file of at most 64 GiB to its end, which may take long. Absent if stop was set. Throws
// std::runtime_error, with the reason, if the file is missing, too large, or cannot be read.
std::optional<FileDigest> digestOf(const std::string& path, const std::atomic<bool>& stop);

}  // namespace acme
