#include "Platform/Files/Files.h"

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <utility>

#include "Platform/Base/Descriptor.h"
#include "Platform/Files/NativeFiles.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

using DirectoryHandle = std::unique_ptr<DIR, CloseDirectory>;

std::optional<std::vector<std::string>> namesIn(DirectoryHandle directory) {
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

bool writeWhole(int file, std::string_view contents) {
  while (!contents.empty()) {
    const auto written = ::write(file, contents.data(), contents.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    contents.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// Gives the owner all rights to the new directory, whatever the umask.
bool makeDirectory(const std::string& path) {
  constexpr mode_t defaultMode = 0777;
  struct stat status {};
  if (::mkdir(path.c_str(), defaultMode) != 0) return false;
  if (::lstat(path.c_str(), &status) != 0) return false;
  const bool isUsable = (status.st_mode & S_IRWXU) == S_IRWXU;
  return isUsable || ::chmod(path.c_str(), (status.st_mode & 07777U) | S_IRWXU) == 0;
}

// Another process may make it at the same time.
bool ensureDirectory(const std::string& path) {
  return isDirectory(path) || makeDirectory(path) || isDirectory(path);
}

// Returns the home directory of a user, "" for the user of this process; absent if the user does
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

bool isDirectory(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isRegularFile(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool fileExists(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

bool createDirectory(const std::string& path) {
  if (ensureDirectory(path)) return true;
  if (errno == ENAMETOOLONG) return false;  // a part of the path would be made
  for (auto slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    if (!ensureDirectory(path.substr(0, slash))) return false;
  }
  return ensureDirectory(path);
}

std::optional<std::vector<std::string>> contentsOfDirectory(const std::string& path) {
  return namesIn(DirectoryHandle(opendir(path.c_str())));
}

std::optional<std::vector<std::string>> contentsOfDirectory(int directory) {
  Descriptor copy(::fcntl(directory, F_DUPFD_CLOEXEC, 0));
  DirectoryHandle handle(copy ? fdopendir(copy.get()) : nullptr);
  if (!handle) return std::nullopt;
  copy.release();
  rewinddir(handle.get());
  return namesIn(std::move(handle));
}

// Always the same name: the next call replaces a file that a killed process left.
std::string stagedPath(const std::string& path) { return path + ".new"; }

std::optional<std::string> firstEntryWithExtension(const std::string& directory,
                                                   std::string_view extension) {
  const auto names = contentsOfDirectory(directory).value_or(std::vector<std::string>());
  const auto first = std::ranges::find(names, extension, pathExtension);
  if (first == names.end()) return std::nullopt;
  return appendPathComponent(directory, *first);
}

std::optional<std::string> contentsOfFile(int file, std::size_t most) {
  struct stat status {};
  if (::fstat(file, &status) != 0) return std::nullopt;
  // One byte more than expected finds the end without another buffer.
  std::string contents(std::min(static_cast<std::size_t>(status.st_size), most) + 1, '\0');
  std::size_t length = 0;
  while (length <= most) {
    if (length == contents.size()) contents.resize(std::min(2 * length, most + 1));
    const auto count = ::pread(file, contents.data() + length, contents.size() - length,
                               static_cast<off_t>(length));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) {
      contents.resize(length);
      return contents;
    }
    length += static_cast<std::size_t>(count);
  }
  errno = EFBIG;
  return std::nullopt;
}

bool flushItem(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  return file && flushDescriptor(file.get());
}

bool replaceFile(const std::string& path, std::string_view contents) {
  return replaceFile(path, {contents});
}

bool replaceFile(const std::string& path, std::initializer_list<std::string_view> parts) {
  const auto write = [](int file) {
    return [file](std::string_view part) { return writeWhole(file, part); };
  };
  const std::string staged = stagedPath(path);
  ::unlink(staged.c_str());
  const Descriptor file(
      ::open(staged.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!file) return false;
  if (::fchmod(file.get(), S_IRUSR | S_IWUSR) == 0 &&
      std::ranges::all_of(parts, write(file.get())) && flushDescriptor(file.get()) &&
      ::rename(staged.c_str(), path.c_str()) == 0) {
    const fs::path directory = fs::path(path).parent_path();
    return flushItem(directory.empty() ? "." : directory.string());
  }
  ::unlink(staged.c_str());
  return false;
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

}  // namespace qbdkr
