#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace qbdkr {

// Names the file that an operation failed at, and the system's words for the failure.
struct FileError {
  std::string path;
  std::string message;
};

inline FileError fileError(std::string path, int error) {
  return {std::move(path), std::error_code(error, std::generic_category()).message()};
}

inline FileError lastFileError(const std::string& path) { return fileError(path, errno); }

}  // namespace qbdkr
