#include "Platform/Files.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include "Platform/Descriptor.h"
#include "Platform/FileSystem.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

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
    if (const auto lock = FileLock::acquire(path, std::chrono::milliseconds(0))) removeTree(path);
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
      const bool taken = !lock && errno == EWOULDBLOCK;
      if (!taken && fileExists(path)) return Staging(std::move(path), std::move(lock));
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
  Staging(std::string path, std::optional<FileLock> lock)
      : path_(std::move(path)), lock_(std::move(lock)) {}

  std::string path_;
  std::optional<FileLock> lock_;
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

bool writeWhole(int file, std::string_view contents) {
  while (!contents.empty()) {
    const auto written = ::write(file, contents.data(), contents.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    contents.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// Room that is set aside is not held against the limit on the size of this process's files.
bool mayHaveSize(off_t size) {
  rlimit limit{};
  return ::getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY ||
         static_cast<rlim_t>(size) <= limit.rlim_cur;
}

std::string describe(const std::error_code& error) { return error.message(); }

std::error_code lastError() { return {errno, std::generic_category()}; }

// The home directory of a user, "" for the one who runs this process; absent for a user who does
// not exist.
std::optional<std::string> homeDirectory(const std::string& user) {
  const char* home = std::getenv("HOME");
  if (user.empty() && home != nullptr && *home != '\0') return home;
  struct passwd entry {};
  struct passwd* found = nullptr;
  std::array<char, 16384> buffer{};
  const int error = user.empty()
                        ? getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found)
                        : getpwnam_r(user.c_str(), &entry, buffer.data(), buffer.size(), &found);
  if (error == 0 && found != nullptr) return found->pw_dir;
  return user.empty() ? std::optional<std::string>("/") : std::nullopt;
}

}  // namespace

bool fileExists(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

bool createDirectory(const std::string& path) {
  std::error_code error;
  fs::create_directories(path, error);
  return fs::is_directory(path, error);
}

std::optional<std::vector<std::string>> contentsOfDirectory(const std::string& path) {
  const std::unique_ptr<DIR, CloseDirectory> directory(opendir(path.c_str()));
  if (!directory) return std::nullopt;
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = readdir(directory.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
    errno = 0;
  }
  if (errno != 0) return std::nullopt;
  return names;
}

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

bool replaceFile(const std::string& path, std::string_view contents) {
  // Always the same name: one that a process has left when it was killed is used again.
  const std::string staged = path + ".new";
  const Descriptor file(::open(staged.c_str(),
                               O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
                               S_IRUSR | S_IWUSR));
  if (!file) return false;
  if (::fchmod(file.get(), S_IRUSR | S_IWUSR) == 0 && writeWhole(file.get(), contents) &&
      flushDescriptor(file.get()) && ::rename(staged.c_str(), path.c_str()) == 0) {
    return flush(fs::path(path).parent_path());
  }
  ::unlink(staged.c_str());
  return false;
}

bool rewriteFile(const std::string& path, std::string_view contents) {
  const Descriptor file(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
  const auto size = static_cast<off_t>(contents.size());
  // Room is made first: running out of it in the middle would cost what the file held.
  if (!file || !mayHaveSize(size) || !setRoomAside(file.get(), size)) return false;
  return writeWhole(file.get(), contents) && ::ftruncate(file.get(), size) == 0 &&
         flushDescriptor(file.get());
}

std::string expandTilde(std::string_view path) {
  if (!path.starts_with('~')) return std::string(path);
  const auto end = std::min(path.find('/'), path.size());
  auto home = homeDirectory(std::string(path.substr(1, end - 1)));
  return home ? home->append(path.substr(end)) : std::string(path);
}

std::string_view lastPathComponent(std::string_view path) {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos || path.size() == 1 ? path : path.substr(slash + 1);
}

std::string_view pathExtension(std::string_view path) {
  const std::string_view name = lastPathComponent(path);
  const auto dot = name.rfind('.');
  return dot == std::string_view::npos || dot == 0 ? std::string_view() : name.substr(dot + 1);
}

std::string appendPathComponent(std::string_view path, std::string_view component) {
  std::string joined(path);
  while (joined.size() > 1 && joined.ends_with('/')) joined.pop_back();
  if (!joined.empty() && !joined.ends_with('/')) joined += '/';
  return joined.append(component);
}

std::optional<FileLock> FileLock::acquire(const std::string& path,
                                          std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file) return std::nullopt;
  // flock() has no time-out of its own, and no event tells that a lock was released.
  constexpr int pauseInMilliseconds = 10;
  while (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return std::nullopt;
    if (std::chrono::steady_clock::now() >= deadline) return std::nullopt;
    ::poll(nullptr, 0, pauseInMilliseconds);
  }
  return FileLock(file.release());
}

// Unlocked, not just closed: a process that was forked meanwhile may have the descriptor as well.
FileLock::~FileLock() {
  if (descriptor_ < 0) return;
  ::flock(descriptor_, LOCK_UN);
  ::close(descriptor_);
}

}  // namespace qbdkr
