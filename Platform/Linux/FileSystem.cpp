#include "Platform/FileSystem.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace qbdkr {

std::optional<bool> renameExclusively(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno == EINVAL || errno == ENOSYS) return std::nullopt;
  return false;
}

bool copyRegularFile(const std::string& from, const std::string& to) {
  std::error_code error;
  return std::filesystem::copy_file(from, to, error);
}

bool copyDirectoryAttributes(const std::string&, const std::string&) { return true; }

bool flushDescriptor(int file) { return ::fsync(file) == 0; }

bool setRoomAside(int file, off_t size) {
  int result = 0;
  do {
    result = size == 0 ? 0 : ::fallocate(file, FALLOC_FL_KEEP_SIZE, 0, size);
  } while (result != 0 && errno == EINTR);
  return result == 0 || errno == EOPNOTSUPP || errno == ENOSYS;
}

}  // namespace qbdkr
