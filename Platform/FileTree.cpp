#include "Platform/FileTree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "Platform/Descriptor.h"
#include "Platform/FileLock.h"
#include "Platform/FileSystem.h"
#include "Platform/Files.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;

// Work in progress lies beside its target under a hidden name, locked by the process that works on
// it. Whoever comes next clears away what a process that ended has left.
constexpr std::string_view stagingSuffix = ".qbhp-staging-";
constexpr std::string_view uniquePart = "XXXXXX";  // mkdtemp() puts other letters in its place
constexpr std::string_view itemPart = "/item";     // what is worked on

std::string stagingPrefix(const fs::path& target) {
  return '.' + target.filename().string() + std::string(stagingSuffix);
}

void removeTree(const fs::path& path) {
  std::error_code ignored;
  fs::remove_all(path, ignored);
}

void clearAbandonedStaging(const fs::path& target) {
  const std::string directory = target.parent_path();
  const std::string prefix = stagingPrefix(target);
  for (const std::string& name :
       contentsOfDirectory(directory).value_or(std::vector<std::string>{})) {
    if (!name.starts_with(prefix)) continue;
    const std::string path = appendPathComponent(directory, name);
    const auto lock = FileLock::acquire(path, std::chrono::milliseconds(0));
    if (lock.isHeld()) removeTree(path);
  }
}

// A locked directory beside a target, removed with everything that is still in it.
class Staging {
 public:
  static std::optional<Staging> beside(const fs::path& target) {
    clearAbandonedStaging(target);
    // Another process that clears away may take a new directory before it is locked.
    constexpr int attempts = 8;
    for (int attempt = 0; attempt < attempts; ++attempt) {
      std::string path = target.parent_path() / stagingPrefix(target).append(uniquePart);
      if (mkdtemp(path.data()) == nullptr) return std::nullopt;
      auto lock = FileLock::acquire(path, std::chrono::milliseconds(0));
      // Where there are no locks, two at the same time are the lesser evil.
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
    if (!path_.empty()) removeTree(path_);
  }

  [[nodiscard]] fs::path item() const { return path_ + std::string(itemPart); }

 private:
  Staging(std::string path, FileLock lock) : path_(std::move(path)), lock_(std::move(lock)) {}

  std::string path_;
  FileLock lock_;
};

// Copies modes and links. Directories stay writable for their owner, or a copy of a read-only tree
// could neither be filled nor ever be replaced.
bool copyTree(const fs::path& from, const fs::path& to) {
  std::error_code error;
  const auto status = fs::symlink_status(from, error);
  if (error) return false;
  if (fs::is_symlink(status)) {
    fs::copy_symlink(from, to, error);
    return !error;
  }
  if (fs::is_regular_file(status)) return copyRegularFile(from, to);
  if (!fs::is_directory(status)) return false;
  const auto mode = status.permissions() | fs::perms::owner_all;
  if (::mkdir(to.c_str(), S_IRWXU) != 0 || ::chmod(to.c_str(), static_cast<mode_t>(mode)) != 0 ||
      !copyDirectoryAttributes(from, to)) {
    return false;
  }
  const auto names = contentsOfDirectory(from);
  return names && std::ranges::all_of(*names, [&](const std::string& name) {
           return copyTree(from / name, to / name);
         });
}

bool flush(const fs::path& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  return file && flushDescriptor(file.get());
}

bool flushTree(const fs::path& root) {
  std::error_code error;
  const auto status = fs::symlink_status(root, error);
  if (fs::is_symlink(status)) return true;  // stored with its directory
  if (!fs::is_directory(status)) return flush(root);
  for (auto entry = fs::recursive_directory_iterator(root, error);
       !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
    if (!entry->is_symlink(error) && !flush(entry->path())) return false;
  }
  return !error && flush(root);
}

bool moveWithoutReplacing(const fs::path& from, const fs::path& to) {
  if (const auto moved = renameExclusively(from, to)) return *moved;
  // On other file systems a directory at least never replaces one that has contents.
  return !fileExists(to) && ::rename(from.c_str(), to.c_str()) == 0;
}

std::string describe(const std::error_code& error) { return error.message(); }

std::error_code lastError() { return {errno, std::generic_category()}; }

}  // namespace

std::optional<std::string> removeItem(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return describe(lastError());
  const auto staging = Staging::beside(path);
  if (!staging) return describe(lastError());
  if (::rename(path.c_str(), staging->item().c_str()) != 0) return describe(lastError());
  return std::nullopt;
}

// DIRECTORY/.NAME.qbhp-staging-UNIQUE/item/REST was DIRECTORY/NAME/REST.
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

bool copyItem(const std::string& from, const std::string& to) {
  struct stat status {};
  if (::lstat(to.c_str(), &status) == 0) return false;
  const auto staging = Staging::beside(to);
  if (!staging) return false;
  if (!copyTree(from, staging->item()) || !flushTree(staging->item()) ||
      !moveWithoutReplacing(staging->item(), to)) {
    return false;
  }
  flush(fs::path(to).parent_path());
  return true;
}

void clearInterrupted(const std::string& path) { clearAbandonedStaging(path); }

}  // namespace qbdkr
