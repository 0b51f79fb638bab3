#include "Platform/Files/FileTree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "Platform/Base/Descriptor.h"
#include "Platform/Base/DropExceptions.h"
#include "Platform/Files/EarlyFlush.h"
#include "Platform/Files/FileLock.h"
#include "Platform/Files/Files.h"
#include "Platform/Files/NativeFiles.h"
#include "Platform/Files/TreeCopy.h"
#include "Platform/Files/TreeRemoval.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;

// Work in progress lies beside its target under a hidden name, locked by the process that works on
// it. The next work on the same path clears away anything that an ended process left.
constexpr std::string_view stagingSuffix = ".qbhp-staging-";
constexpr std::string_view uniquePart = "XXXXXX";  // mkdtemp() replaces these letters
constexpr std::string_view itemPart = "/item";     // the item in progress

std::string stagingPrefix(const fs::path& target) {
  return '.' + target.filename().string() + std::string(stagingSuffix);
}

std::vector<std::string> stagingsOf(const fs::path& target) {
  const std::string prefix = stagingPrefix(target);
  auto names =
      contentsOfDirectory(target.parent_path().string()).value_or(std::vector<std::string>{});
  std::erase_if(names, [&](const std::string& name) { return !name.starts_with(prefix); });
  return names;
}

void clearAbandonedStaging(const fs::path& target) {
  const std::string directory = target.parent_path();
  for (const std::string& name : stagingsOf(target)) {
    const std::string path = appendPathComponent(directory, name);
    openToOwner(AT_FDCWD, path, 0);  // a strict umask would keep it from being locked
    const auto lock = FileLock::acquire(path, std::chrono::milliseconds(0));
    if (lock.isHeld()) removeTree(path);
  }
}

// A locked directory beside a target, removed with everything that is still in it.
class Staging {
 public:
  static std::optional<Staging> beside(const fs::path& target) {
    clearAbandonedStaging(target);
    // Another process that clears away may remove the new directory before it is locked.
    constexpr int attempts = 8;
    for (int attempt = 0; attempt < attempts; ++attempt) {
      std::string path = target.parent_path() / stagingPrefix(target).append(uniquePart);
      if (mkdtemp(path.data()) == nullptr) return std::nullopt;
      openToOwner(AT_FDCWD, path, 0);
      auto lock = FileLock::acquire(path, std::chrono::milliseconds(0));
      // Without locks, two processes at the same time are the lesser evil.
      if (!lock.isTaken() && fileExists(path)) return Staging(std::move(path), std::move(lock));
      ::rmdir(path.c_str());
    }
    errno = EBUSY;
    return std::nullopt;
  }

  Staging(Staging&& other) noexcept
      : path_(std::exchange(other.path_, {})), lock_(std::move(other.lock_)) {}
  Staging& operator=(Staging&&) = delete;
  ~Staging() {
    // Without memory it stays, and the next work on the target clears it away.
    if (!path_.empty()) dropExceptions([this] { removeTree(path_); });
  }

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] fs::path item() const { return path_ + std::string(itemPart); }

 private:
  Staging(std::string path, FileLock lock) : path_(std::move(path)), lock_(std::move(lock)) {}

  std::string path_;
  FileLock lock_;
};

bool moveWithoutReplacing(const fs::path& from, const fs::path& to) {
  if (const auto moved = renameExclusively(from, to)) return *moved;
  // On other file systems rename() at least never replaces a directory that has contents.
  return !fileExists(to) && ::rename(from.c_str(), to.c_str()) == 0;
}

// Calls a function that moves an item, and returns its result. Moving a directory changes its "..",
// which takes the right to write to it.
template <class Move>
auto moveWritable(const std::string& path, const struct stat& status, Move move) {
  const bool isClosed = S_ISDIR(status.st_mode) && (status.st_mode & S_IWUSR) == 0;
  if (isClosed) openToOwner(AT_FDCWD, path, status.st_mode);
  const std::optional<bool> moved = move();
  const int error = errno;
  if (isClosed && moved != true) ::chmod(path.c_str(), status.st_mode);
  errno = error;
  return moved;
}

bool isBelow(const fs::path& path, const fs::path& directory) {
  return std::mismatch(directory.begin(), directory.end(), path.begin(), path.end()).first ==
         directory.end();
}

// Makes a copy in a staging, of which the disk writes a part meanwhile.
std::optional<FileError> copyAndWrite(const fs::path& source, const Staging& staging,
                                      const CopyProgress& progress) {
  EarlyFlush early([directory = staging.path()] { writeSoFar(directory); });
  return copyTree(source, staging.item(), [&](std::uint64_t bytes) {
    early.add(bytes);
    if (progress) progress(bytes);
  });
}

// Makes a durable copy beside its target, in a new staging.
std::optional<FileError> copyBeside(const std::string& from, const std::string& to,
                                    const CopyProgress& progress, std::optional<Staging>& staging) {
  std::error_code error;
  const fs::path source = fs::canonical(from, error);
  if (error) return fileError(from, error.value());
  if (isBelow(fs::weakly_canonical(to, error), source)) return fileError(to, EINVAL);
  if (auto made = Staging::beside(to)) staging.emplace(std::move(*made));
  if (!staging) return lastFileError(to);
  // Opened before the first write: otherwise a failure to store one goes unnoticed.
  const Descriptor directory(::open(staging->path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory) return lastFileError(to);
  if (auto failure = copyAndWrite(source, *staging, progress)) return failure;
  if (!flushTree(directory.get(), staging->item())) return lastFileError(to);
  return std::nullopt;
}

// Moves a copy to its target, if nothing is there.
std::optional<FileError> place(const Staging& staging, const std::string& to) {
  if (!moveWithoutReplacing(staging.item(), to)) return lastFileError(to);
  flushItem(fs::path(to).parent_path());
  return std::nullopt;
}

}  // namespace

std::optional<FileError> removalObstacleOf(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return lastFileError(path);
  const fs::path directory = fs::path(path).parent_path();
  if (::faccessat(AT_FDCWD, directory.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
    return lastFileError(path);
  }
  return S_ISDIR(status.st_mode) ? removalObstacle(path) : std::nullopt;
}

std::optional<FileError> removeItem(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return lastFileError(path);
  const auto staging = Staging::beside(path);
  if (!staging) return lastFileError(path);
  if (auto obstacle = removalObstacleOf(path)) return obstacle;
  const auto moved = moveWritable(path, status, [&] {
    return std::optional(::rename(path.c_str(), staging->item().c_str()) == 0);
  });
  return *moved ? std::nullopt : std::optional(lastFileError(path));
}

// Maps DIRECTORY/.NAME.qbhp-staging-UNIQUE/item/REST back to DIRECTORY/NAME/REST.
std::string pathBeforeRemoval(std::string_view path) {
  const auto suffix = path.rfind(stagingSuffix);
  const auto slash = suffix == std::string_view::npos ? suffix : path.rfind('/', suffix);
  if (slash == std::string_view::npos || path[slash + 1] != '.') return std::string(path);
  std::string_view rest = path.substr(suffix + stagingSuffix.size());
  rest.remove_prefix(std::min(uniquePart.size(), rest.size()));
  if (!rest.starts_with(itemPart)) return std::string(path);
  rest.remove_prefix(itemPart.size());
  const auto name = slash + 2;
  if (!rest.starts_with('/') || name >= suffix) return std::string(path);
  return std::string(path.substr(0, slash + 1))
      .append(path.substr(name, suffix - name))
      .append(rest);
}

std::optional<FileError> copyItem(const std::string& from, const std::string& to,
                                  const CopyProgress& progress) {
  struct stat status {};
  if (::lstat(to.c_str(), &status) == 0) return fileError(to, EEXIST);
  std::optional<Staging> staging;
  if (auto failure = copyBeside(from, to, progress, staging)) return failure;
  return place(*staging, to);
}

std::uint64_t sizeOfItem(const std::string& path) {
  std::error_code error;
  std::uint64_t size = 0;
  const auto add = [&](const fs::directory_entry& entry) {
    if (!entry.is_symlink(error) && entry.is_regular_file(error)) {
      const auto bytes = entry.file_size(error);
      if (!error) size += bytes;
    }
  };
  const fs::directory_entry item(fs::canonical(path, error), error);
  if (error) return 0;
  if (!item.is_directory(error)) add(item);
  constexpr auto options = fs::directory_options::skip_permission_denied;
  for (auto entry = fs::recursive_directory_iterator(item.path(), options, error);
       !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
    add(*entry);
    error.clear();
  }
  return size;
}

class ItemReplacement::Copy {
 public:
  explicit Copy(std::string to) : to_(std::move(to)) {}

  std::optional<FileError> make(const std::string& from, const CopyProgress& progress) {
    return copyBeside(from, to_, progress, staging_);
  }

  std::optional<FileError> exchange() {
    struct stat status {};
    if (::lstat(to_.c_str(), &status) != 0) return lastFileError(to_);
    if (auto obstacle = removalObstacleOf(to_)) return obstacle;
    const auto exchanged =
        moveWritable(to_, status, [&] { return exchangeItems(staging_->item(), to_); });
    if (exchanged == false) return lastFileError(to_);
    if (exchanged) {
      flushItem(fs::path(to_).parent_path());
      return std::nullopt;
    }
    if (auto failure = removeItem(to_)) return failure;
    return place(*staging_, to_);
  }

 private:
  std::string to_;
  std::optional<Staging> staging_;
};

ItemReplacement::ItemReplacement() = default;
ItemReplacement::~ItemReplacement() = default;

std::optional<FileError> ItemReplacement::prepare(const std::string& from, const std::string& to,
                                                  const CopyProgress& progress) {
  copy_ = std::make_unique<Copy>(to);
  return copy_->make(from, progress);
}

std::optional<FileError> ItemReplacement::exchange() { return copy_->exchange(); }

void clearInterrupted(const std::string& path) { clearAbandonedStaging(path); }

std::vector<std::string> unfinishedWorkOn(const std::string& path) { return stagingsOf(path); }

}  // namespace qbdkr
