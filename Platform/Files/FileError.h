#pragma once

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace qbdkr {

// The file at which an operation failed, and the system's message for the error.
struct FileError {
  std::string path;
  std::string message;
  int number = 0;  // errno; 0 for a reason of our own
};

inline FileError fileError(std::string path, int error) {
  return {std::move(path), std::error_code(error, std::generic_category()).message(), error};
}

inline FileError lastFileError(const std::string& path) { return fileError(path, errno); }

}  // namespace qbdkr
