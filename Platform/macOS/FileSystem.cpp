#include "Platform/FileSystem.h"

#include <copyfile.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace qbdkr {

std::optional<bool> renameExclusively(const std::string& from, const std::string& to) {
  if (renamex_np(from.c_str(), to.c_str(), RENAME_EXCL) == 0) return true;
  if (errno == ENOTSUP || errno == EINVAL) return std::nullopt;
  return false;
}

// Extended attributes, access lists and times go along, as with every copy that the system makes:
// parts of a signature may lie in them. The mark of quarantine is one of them.
bool copyRegularFile(const std::string& from, const std::string& to) {
  return ::copyfile(from.c_str(), to.c_str(), nullptr,
                    COPYFILE_ALL | COPYFILE_EXCL | COPYFILE_NOFOLLOW_SRC) == 0;
}

bool copyDirectoryAttributes(const std::string& from, const std::string& to) {
  return ::copyfile(from.c_str(), to.c_str(), nullptr, COPYFILE_XATTR | COPYFILE_NOFOLLOW_SRC) == 0;
}

// fsync() leaves the data in the drive's own buffers; where the file system cannot ask for more, it
// has to do.
bool flushDescriptor(int file) { return ::fcntl(file, F_FULLFSYNC) == 0 || ::fsync(file) == 0; }

bool setRoomAside(int file, off_t size) {
  constexpr off_t blockSize = 512;  // of st_blocks, whatever the file system's own
  struct stat status {};
  if (::fstat(file, &status) != 0) return false;
  const off_t held = status.st_blocks * blockSize;
  if (size <= held) return true;
  fstore_t room{};
  room.fst_flags = F_ALLOCATEALL;
  room.fst_posmode = F_PEOFPOSMODE;
  room.fst_length = size - held;
  int result = 0;
  do {
    result = ::fcntl(file, F_PREALLOCATE, &room);
  } while (result != 0 && errno == EINTR);
  return result == 0 || errno == ENOTSUP || errno == EINVAL;
}

}  // namespace qbdkr
