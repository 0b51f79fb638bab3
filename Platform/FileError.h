#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace qbdkr {

// What went wrong with a file: its path, and the system's words for it.
struct FileError {
  std::string path;
  std::string message;
};

inline FileError fileError(std::string path, int error) {
  return {std::move(path), std::error_code(error, std::generic_category()).message()};
}

inline FileError lastFileError(const std::string& path) { return fileError(path, errno); }

}  // namespace qbdkr
