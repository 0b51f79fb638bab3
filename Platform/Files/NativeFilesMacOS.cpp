#include <copyfile.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <system_error>

#include "Platform/Base/Descriptor.h"
#include "Platform/Base/DropExceptions.h"
#include "Platform/Files/Files.h"
#include "Platform/Files/NativeFiles.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;

bool failedWith(const std::error_code& error) {
  if (error) errno = error.value();
  return static_cast<bool>(error);
}

// Tells the progress of one copy by the system.
class ToldProgress {
 public:
  explicit ToldProgress(const CopyProgress& progress)
      : progress_(progress), state_(::copyfile_state_alloc()) {
    if (state_ == nullptr) return;
    ::copyfile_state_set(state_, COPYFILE_STATE_STATUS_CB,
                         reinterpret_cast<const void*>(&onStatus));
    ::copyfile_state_set(state_, COPYFILE_STATE_STATUS_CTX, this);
  }
  ToldProgress(const ToldProgress&) = delete;
  ToldProgress& operator=(const ToldProgress&) = delete;
  ~ToldProgress() {
    const int before = errno;
    ::copyfile_state_free(state_);
    errno = before;
  }

  [[nodiscard]] copyfile_state_t state() const { return state_; }

  // Tells how many bytes of the file were copied.
  void tell(off_t copied) {
    if (copied <= told_) return;
    progress_(static_cast<std::uint64_t>(copied - told_));
    told_ = copied;
  }

 private:
  static int onStatus(int what, int stage, copyfile_state_t state, const char* /*from*/,
                      const char* /*to*/, void* self) {
    off_t copied = 0;
    if (what == COPYFILE_COPY_DATA && stage == COPYFILE_PROGRESS &&
        ::copyfile_state_get(state, COPYFILE_STATE_COPIED, &copied) == 0) {
      dropExceptions([&] { static_cast<ToldProgress*>(self)->tell(copied); });
    }
    return COPYFILE_CONTINUE;
  }

  const CopyProgress& progress_;
  const copyfile_state_t state_;
  off_t told_ = 0;
};

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
bool copyRegularFile(const std::string& from, const std::string& to, const CopyProgress& progress) {
  constexpr copyfile_flags_t flags = COPYFILE_ALL | COPYFILE_EXCL | COPYFILE_NOFOLLOW_SRC;
  if (!progress) return ::copyfile(from.c_str(), to.c_str(), nullptr, flags) == 0;
  ToldProgress told(progress);
  if (::copyfile(from.c_str(), to.c_str(), told.state(), flags) != 0) return false;
  // A copy without data of its own, as a clone, does not report any.
  struct stat status {};
  if (::lstat(to.c_str(), &status) == 0) told.tell(status.st_size);
  return true;
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

// A flush of all files, one by one, would take longer than it saves.
void writeSoFar(const std::string&) {}

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

// POSIX tells neither the type nor the right to execute.
std::optional<FileSystem> nativeFileSystemOf(const std::string& path) {
  struct statvfs status {};
  if (::statvfs(path.c_str(), &status) != 0) return std::nullopt;
  FileSystem fileSystem;
  fileSystem.isWritable = (status.f_flag & ST_RDONLY) == 0;
  fileSystem.freeSize = static_cast<std::uint64_t>(status.f_bavail) * status.f_frsize;
  return fileSystem;
}

}  // namespace qbdkr
