#include <fcntl.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <sys/xattr.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <vector>

#include "Platform/Base/Descriptor.h"
#include "Platform/Files/NativeFiles.h"

namespace qbdkr {
namespace {

constexpr mode_t ownersFile = S_IRUSR | S_IWUSR;
constexpr mode_t rightsBits = S_IRWXU | S_IRWXG | S_IRWXO;
// Copied by one call of the kernel, so that a large file shows its progress.
constexpr off_t chunk = off_t{16} << 20;  // bytes

bool failWith(int error) {
  errno = error;
  return false;
}

// Tells from errno whether the file system does not store an attribute, which is then left out.
bool isNotTaken() { return errno == EOPNOTSUPP || errno == EPERM || errno == ENOSYS; }

std::optional<bool> renameAs(unsigned way, const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), way) == 0) return true;
  if (errno == EINVAL || errno == ENOSYS) return std::nullopt;
  return false;
}

bool writeAt(int file, const char* bytes, std::size_t size, off_t at) {
  while (size > 0) {
    const auto written = ::pwrite(file, bytes, size, at);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    bytes += written;
    size -= static_cast<std::size_t>(written);
    at += written;
  }
  return true;
}

void tell(const CopyProgress& progress, off_t bytes) {
  if (progress && bytes > 0) progress(static_cast<std::uint64_t>(bytes));
}

bool copyThroughMemory(int from, int to, off_t at, off_t end, const CopyProgress& progress) {
  std::array<char, 65536> buffer{};
  while (at < end) {
    const auto wanted = std::min(end - at, static_cast<off_t>(buffer.size()));
    const auto size = ::pread(from, buffer.data(), static_cast<std::size_t>(wanted), at);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return false;
    if (size == 0) return failWith(EBUSY);  // cut during the copy
    if (!writeAt(to, buffer.data(), static_cast<std::size_t>(size), at)) return false;
    at += size;
    tell(progress, size);
  }
  return true;
}

bool copyRange(int from, int to, off_t begin, off_t end, const CopyProgress& progress) {
  off_t read = begin;
  off_t written = begin;
  while (read < end) {
    const auto size = static_cast<std::size_t>(std::min(end - read, chunk));
    const auto copied = ::copy_file_range(from, &read, to, &written, size, 0);
    if (copied < 0 && errno == EINTR) continue;
    // Not supported between all file systems. Any other failure occurs again below.
    if (copied <= 0) return copyThroughMemory(from, to, read, end, progress);
    tell(progress, copied);
  }
  return true;
}

// Shares the data with the original if the file system can. Otherwise copies it, and nothing else:
// a hole stays a hole.
bool copyContents(int from, int to, off_t size, const CopyProgress& progress) {
  off_t at = 0;
  if (::ioctl(to, FICLONE, from) == 0) {
    tell(progress, size);
    return true;
  }
  while (at < size) {
    const off_t data = ::lseek(from, at, SEEK_DATA);
    if (data < 0 && errno == ENXIO) break;  // a hole up to the end
    if (data < 0) return false;
    const off_t end = std::min(::lseek(from, data, SEEK_HOLE), size);
    tell(progress, data - at);
    if (end < 0 || !copyRange(from, to, data, end, progress)) return false;
    at = end;
  }
  tell(progress, size - at);
  return at == size || ::ftruncate(to, size) == 0;
}

bool copyAttribute(int from, int to, const char* name) {
  const auto size = ::fgetxattr(from, name, nullptr, 0);
  if (size < 0) return errno == ENODATA;  // removed during the copy
  std::vector<char> value(static_cast<std::size_t>(size));
  const auto read = ::fgetxattr(from, name, value.data(), value.size());
  if (read < 0) return false;
  return ::fsetxattr(to, name, value.data(), static_cast<std::size_t>(read), 0) == 0 ||
         isNotTaken();
}

// Copies only attributes of users: the others belong to the system, and describe one file in one
// place.
bool copyAttributes(int from, int to) {
  const auto size = ::flistxattr(from, nullptr, 0);
  if (size <= 0) return size == 0 || isNotTaken();
  std::vector<char> names(static_cast<std::size_t>(size));
  const auto read = ::flistxattr(from, names.data(), names.size());
  if (read < 0) return false;
  const std::string_view all(names.data(), static_cast<std::size_t>(read));
  for (std::size_t at = 0; at < all.size(); at = all.find('\0', at) + 1) {
    const char* name = all.data() + at;  // ends in a NUL
    if (std::string_view(name).starts_with("user.") && !copyAttribute(from, to, name)) return false;
  }
  return true;
}

// Drops the set-ID bits if the owner or group differs: a program that runs as its owner must not
// run as the owner of the copy instead.
mode_t modeOfCopy(const struct stat& original, const struct stat& copy) {
  const mode_t mode = original.st_mode & modeBits;
  const bool isOwnedAlike = copy.st_uid == original.st_uid && copy.st_gid == original.st_gid;
  return isOwnedAlike ? mode : mode & ~static_cast<mode_t>(S_ISUID | S_ISGID);
}

// Leaves a mode that is right already: each change of it is one more of the inode.
bool setMode(int file, const struct stat& status, mode_t mode) {
  return (status.st_mode & modeBits) == mode || ::fchmod(file, mode) == 0;
}

std::array<timespec, 2> timesOf(const struct stat& status) {
  return {timespec{0, UTIME_OMIT}, status.st_mtim};
}

bool setModificationTime(int copy, const struct stat& original) {
  return ::futimens(copy, timesOf(original).data()) == 0 || isNotTaken();
}

// Fails if the file has changed: half of the old contents and half of the new ones are neither.
bool checkUnchanged(int file, const struct stat& before) {
  struct stat now {};
  if (::fstat(file, &now) != 0) return false;
  const bool same = now.st_size == before.st_size && now.st_mtim.tv_sec == before.st_mtim.tv_sec &&
                    now.st_mtim.tv_nsec == before.st_mtim.tv_nsec;
  return same || failWith(EBUSY);
}

struct FileSystemType {
  unsigned long magic = 0;
  const char* name = "";
  bool holdsFiles = true;
};

// Only those that a directory of a user may lie on, and those that a mistake leads to.
constexpr std::array<FileSystemType, 19> fileSystemTypes{{
    {EXT4_SUPER_MAGIC, "ext4"},
    {0x58465342, "xfs"},
    {BTRFS_SUPER_MAGIC, "btrfs"},
    {F2FS_SUPER_MAGIC, "f2fs"},
    {0x2FC12FC1, "zfs"},
    {OVERLAYFS_SUPER_MAGIC, "overlay"},
    {TMPFS_MAGIC, "tmpfs"},
    {RAMFS_MAGIC, "ramfs"},
    {NFS_SUPER_MAGIC, "nfs"},
    {CIFS_SUPER_MAGIC, "cifs"},
    {SMB2_SUPER_MAGIC, "smb2"},
    {FUSE_SUPER_MAGIC, "fuse"},
    {ECRYPTFS_SUPER_MAGIC, "ecryptfs"},
    {MSDOS_SUPER_MAGIC, "vfat"},
    {EXFAT_SUPER_MAGIC, "exfat"},
    {PROC_SUPER_MAGIC, "proc", false},
    {SYSFS_MAGIC, "sysfs", false},
    {CGROUP2_SUPER_MAGIC, "cgroup2", false},
    {SQUASHFS_MAGIC, "squashfs"},
}};

}  // namespace

std::optional<bool> renameExclusively(const std::string& from, const std::string& to) {
  return renameAs(RENAME_NOREPLACE, from, to);
}

std::optional<bool> exchangeItems(const std::string& one, const std::string& other) {
  return renameAs(RENAME_EXCHANGE, one, other);
}

bool copyRegularFile(const std::string& from, const std::string& to, const CopyProgress& progress) {
  const Descriptor source(::open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat status {};
  if (!source || ::fstat(source.get(), &status) != 0) return false;
  if (!S_ISREG(status.st_mode)) return failWith(EOPNOTSUPP);
  const mode_t rights = (status.st_mode & rightsBits) | ownersFile;
  const Descriptor copy(::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, rights));
  struct stat made {};
  if (!copy || ::fstat(copy.get(), &made) != 0) return false;
  // The umask may have removed rights that setting attributes needs.
  if (!setMode(copy.get(), made, (made.st_mode & modeBits) | ownersFile)) return false;
  made.st_mode |= ownersFile;
  return copyContents(source.get(), copy.get(), status.st_size, progress) &&
         copyAttributes(source.get(), copy.get()) &&
         setMode(copy.get(), made, modeOfCopy(status, made)) &&
         setModificationTime(copy.get(), status) && checkUnchanged(source.get(), status);
}

bool copyLink(const std::string& from, const std::string& to) {
  std::error_code error;
  std::filesystem::copy_symlink(from, to, error);
  return error ? failWith(error.value()) : copyModificationTime(from, to);
}

bool copyDirectoryAttributes(const std::string& from, const std::string& to) {
  constexpr int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  const Descriptor source(::open(from.c_str(), flags));
  const Descriptor copy(::open(to.c_str(), flags));
  return source && copy && copyAttributes(source.get(), copy.get());
}

bool copyModificationTime(const std::string& from, const std::string& to) {
  struct stat status {};
  if (::lstat(from.c_str(), &status) != 0) return false;
  const auto times = timesOf(status);
  return ::utimensat(AT_FDCWD, to.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) == 0 || isNotTaken();
}

int removalRefusal(int directory, const std::string& name) {
  struct statx status {};
  constexpr int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
  if (::statx(directory, name.c_str(), flags, 0, &status) != 0) return 0;
  const auto attributes = status.stx_attributes & status.stx_attributes_mask;
  if ((attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0) return EPERM;
  return (attributes & STATX_ATTR_MOUNT_ROOT) != 0 ? EBUSY : 0;
}

// Waits once for all files: a wait for each takes a turn of the disk each time.
bool flushTree(int directory, const std::string&) { return ::syncfs(directory) == 0; }

// Opens the directory anew: each opening is told of a failure once.
void writeSoFar(const std::string& directory) {
  const Descriptor opened(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (opened) ::syncfs(opened.get());
}

bool flushDescriptor(int file) { return ::fsync(file) == 0; }

Room setRoomAside(int file, off_t size) {
  int result = 0;
  do {
    result = size == 0 ? 0 : ::fallocate(file, FALLOC_FL_KEEP_SIZE, 0, size);
  } while (result != 0 && errno == EINTR);
  if (result == 0) return Room::setAside;
  return errno == EOPNOTSUPP || errno == ENOSYS ? Room::unknown : Room::missing;
}

std::optional<FileSystem> nativeFileSystemOf(const std::string& path) {
  struct statfs kind {};
  struct statvfs status {};
  if (::statfs(path.c_str(), &kind) != 0 || ::statvfs(path.c_str(), &status) != 0) {
    return std::nullopt;
  }
  FileSystem fileSystem;
  const auto magic = static_cast<unsigned long>(kind.f_type) & 0xFFFFFFFFUL;
  const auto* const type =
      std::ranges::find(fileSystemTypes, magic, [](const auto& known) { return known.magic; });
  if (type != fileSystemTypes.end()) {
    fileSystem.type = type->name;
    fileSystem.holdsFiles = type->holdsFiles;
  }
  fileSystem.isWritable = (status.f_flag & ST_RDONLY) == 0;
  fileSystem.runsPrograms = (status.f_flag & ST_NOEXEC) == 0;
  fileSystem.freeSize = static_cast<std::uint64_t>(status.f_bavail) * status.f_frsize;
  return fileSystem;
}

}  // namespace qbdkr
