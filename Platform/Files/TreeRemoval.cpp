#include "Platform/Files/TreeRemoval.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "Platform/Base/Descriptor.h"
#include "Platform/Files/Files.h"
#include "Platform/Files/NativeFiles.h"

namespace qbdkr {
namespace {

// A directory of a tree, opened step by step from the top. No link is followed on the way, even if
// another process moves things about. No descriptor stays open, however deep the directory lies,
// and its path may be longer than the system accepts.
class Branch {
 public:
  explicit Branch(std::string top) : top_(std::move(top)) {}

  [[nodiscard]] Branch below(const std::string& name) const {
    Branch branch(*this);
    branch.names_.push_back(name);
    return branch;
  }

  [[nodiscard]] Descriptor open() const {
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    Descriptor directory(::open(top_.c_str(), flags));
    for (auto name = names_.begin(); directory && name != names_.end(); ++name) {
      directory = Descriptor(::openat(directory.get(), name->c_str(), flags));
    }
    return directory;
  }

  [[nodiscard]] std::string path() const {
    std::string path = top_;
    for (const std::string& name : names_) path.append("/").append(name);
    return path;
  }

  [[nodiscard]] std::size_t depth() const { return names_.size(); }

 private:
  std::string top_;
  std::vector<std::string> names_;
};

struct Folder {
  Branch branch;
  struct stat status;
};

// Counts a directory that this user owns as writable: its owner can change the rights once it is
// moved away.
bool mayBeEmptied(int directory, const struct stat& status) {
  return ::faccessat(directory, ".", W_OK | X_OK, AT_EACCESS) == 0 ||
         (errno == EACCES && status.st_uid == ::geteuid());
}

// Returns the error with which an entry cannot be removed from a directory that may be emptied; 0
// if it can.
int refusal(int directory, const struct stat& folder, const std::string& name,
            const struct stat& status) {
  const uid_t user = ::geteuid();
  const bool sticky = (folder.st_mode & S_ISVTX) != 0;
  if (sticky && user != 0 && user != folder.st_uid && user != status.st_uid) return EPERM;
  return removalRefusal(directory, name);
}

// Checks the entries of one directory, and adds its directories to the list.
std::optional<FileError> obstacleAmongEntries(const Folder& folder, std::vector<Folder>& folders) {
  const Descriptor directory = folder.branch.open();
  const auto names = directory ? contentsOfDirectory(directory.get()) : std::nullopt;
  if (!names) return lastFileError(folder.branch.path());
  if (names->empty()) return std::nullopt;
  if (!mayBeEmptied(directory.get(), folder.status)) return lastFileError(folder.branch.path());
  for (const std::string& name : *names) {
    struct stat status {};
    if (::fstatat(directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) continue;  // removed by another process
      return lastFileError(folder.branch.below(name).path());
    }
    if (const int error = refusal(directory.get(), folder.status, name, status)) {
      return fileError(folder.branch.below(name).path(), error);
    }
    if (S_ISDIR(status.st_mode)) folders.push_back({folder.branch.below(name), status});
  }
  return std::nullopt;
}

std::optional<FileError> obstacleIn(const Folder& folder) {
  if (folder.branch.depth() >= deepestTree) return fileError(folder.branch.path(), ENAMETOOLONG);
  std::vector<Folder> folders;
  if (auto obstacle = obstacleAmongEntries(folder, folders)) return obstacle;
  for (const Folder& inner : folders) {
    if (auto obstacle = obstacleIn(inner)) return obstacle;
  }
  return std::nullopt;
}

// Removes the files in a directory, and returns the names of its directories.
std::vector<std::string> removeFiles(const Branch& branch) {
  std::vector<std::string> folders;
  const Descriptor directory = branch.open();
  if (!directory) return folders;
  for (const std::string& name :
       contentsOfDirectory(directory.get()).value_or(std::vector<std::string>{})) {
    struct stat status {};
    if (::fstatat(directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (S_ISDIR(status.st_mode)) {
      openToOwner(directory.get(), name, status.st_mode);
      folders.push_back(name);
    } else {
      ::unlinkat(directory.get(), name.c_str(), 0);
    }
  }
  return folders;
}

void removeContents(const Branch& branch) {
  if (branch.depth() > deepestTree) return;  // a tree that was moved away lies one level deeper
  const auto folders = removeFiles(branch);
  if (folders.empty()) return;
  for (const std::string& name : folders) removeContents(branch.below(name));
  const Descriptor directory = branch.open();
  for (const std::string& name : folders) {
    ::unlinkat(directory.get(), name.c_str(), AT_REMOVEDIR);
  }
}

}  // namespace

std::optional<FileError> removalObstacle(const std::string& directory) {
  Folder folder{Branch(directory), {}};
  if (::lstat(directory.c_str(), &folder.status) != 0) return lastFileError(directory);
  return obstacleIn(folder);
}

void removeTree(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return;
  if (!S_ISDIR(status.st_mode)) {
    ::unlink(path.c_str());
    return;
  }
  removeContents(Branch(path));
  ::rmdir(path.c_str());
}

void openToOwner(int parent, const std::string& name, unsigned mode) {
  if ((mode & S_IRWXU) == S_IRWXU) return;
  ::fchmodat(parent, name.c_str(), (mode & modeBits) | S_IRWXU, AT_SYMLINK_NOFOLLOW);
}

}  // namespace qbdkr
