#include <copyfile.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "Platform/Base/Descriptor.h"
#include "Platform/Files/Files.h"
#include "Platform/Files/NativeFiles.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;

bool failedWith(const std::error_code& error) {
  if (error) errno = error.value();
  return static_cast<bool>(error);
}

std::optional<bool> renameAs(unsigned way, const std::string& from, const std::string& to) {
  if (renamex_np(from.c_str(), to.c_str(), way) == 0) return true;
  if (errno == ENOTSUP || errno == EINVAL) return std::nullopt;
  return false;
}

}  // namespace

std::optional<bool> renameExclusively(const std::string& from, const std::string& to) {
  return renameAs(RENAME_EXCL, from, to);
}

std::optional<bool> exchangeItems(const std::string& one, const std::string& other) {
  return renameAs(RENAME_SWAP, one, other);
}

// Keeps extended attributes, access lists and times, as every copy of the system does: they may
// hold parts of a signature, and hold the mark of quarantine.
bool copyRegularFile(const std::string& from, const std::string& to) {
  return ::copyfile(from.c_str(), to.c_str(), nullptr,
                    COPYFILE_ALL | COPYFILE_EXCL | COPYFILE_NOFOLLOW_SRC) == 0;
}

bool copyDirectoryAttributes(const std::string& from, const std::string& to) {
  return ::copyfile(from.c_str(), to.c_str(), nullptr, COPYFILE_XATTR | COPYFILE_NOFOLLOW_SRC) == 0;
}

bool copyLink(const std::string& from, const std::string& to) {
  std::error_code error;
  fs::copy_symlink(from, to, error);
  return !failedWith(error);
}

bool copyModificationTime(const std::string& from, const std::string& to) {
  std::error_code error;
  const auto time = fs::last_write_time(from, error);
  if (failedWith(error)) return false;
  fs::last_write_time(to, time, error);
  return !failedWith(error) || errno == ENOTSUP || errno == EPERM;
}

int removalRefusal(int directory, const std::string& name) {
  struct stat outside {};
  struct stat inside {};
  if (::fstat(directory, &outside) != 0 ||
      ::fstatat(directory, name.c_str(), &inside, AT_SYMLINK_NOFOLLOW) != 0) {
    return 0;
  }
  return outside.st_dev == inside.st_dev ? 0 : EBUSY;
}

// Flushes each file by itself: no call makes one tree durable.
bool flushTree(int, const std::string& tree) {
  std::error_code error;
  const auto status = fs::symlink_status(tree, error);
  if (fs::is_symlink(status)) return true;  // stored with its directory
  if (!fs::is_directory(status)) return flushItem(tree);
  for (auto entry = fs::recursive_directory_iterator(tree, error);
       !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
    if (!entry->is_symlink(error) && !flushItem(entry->path())) return false;
  }
  return !failedWith(error) && flushItem(tree);
}

// fsync() leaves the data in the drive's buffers. It has to do if the file system does not support
// more.
bool flushDescriptor(int file) { return ::fcntl(file, F_FULLFSYNC) == 0 || ::fsync(file) == 0; }

Room setRoomAside(int file, off_t size) {
  constexpr off_t blockSize = 512;  // of st_blocks, on every file system
  struct stat status {};
  if (::fstat(file, &status) != 0) return Room::missing;
  const off_t held = status.st_blocks * blockSize;
  if (size <= held) return Room::setAside;
  fstore_t room{};
  room.fst_flags = F_ALLOCATEALL;
  room.fst_posmode = F_PEOFPOSMODE;
  room.fst_length = size - held;
  int result = 0;
  do {
    result = ::fcntl(file, F_PREALLOCATE, &room);
  } while (result != 0 && errno == EINTR);
  if (result == 0) return Room::setAside;
  return errno == ENOTSUP || errno == EINVAL ? Room::unknown : Room::missing;
}

}  // namespace qbdkr
