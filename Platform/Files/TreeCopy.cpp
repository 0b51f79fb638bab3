#include "Platform/Files/TreeCopy.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstddef>

#include "Platform/Files/Files.h"
#include "Platform/Files/NativeFiles.h"
#include "Platform/Files/TreeRemoval.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;

std::optional<FileError> copyLevel(const fs::path& from, const fs::path& to, std::size_t depth,
                                   const CopyProgress& progress);

bool makeDirectoryLike(const fs::path& from, const struct stat& status, const fs::path& to) {
  const mode_t mode = (status.st_mode & modeBits) | S_IRWXU;
  return ::mkdir(to.c_str(), S_IRWXU) == 0 && ::chmod(to.c_str(), mode) == 0 &&
         copyDirectoryAttributes(from, to);
}

std::optional<FileError> copyDirectory(const fs::path& from, const struct stat& status,
                                       const fs::path& to, std::size_t depth,
                                       const CopyProgress& progress) {
  // A deeper tree could not be removed again.
  if (depth >= deepestTree) return fileError(from, ENAMETOOLONG);
  if (!makeDirectoryLike(from, status, to)) return lastFileError(from);
  const auto names = contentsOfDirectory(from);
  if (!names) return lastFileError(from);
  for (const std::string& name : *names) {
    if (auto error = copyLevel(from / name, to / name, depth + 1, progress)) return error;
  }
  // Comes last, because each new entry changes the time.
  if (!copyModificationTime(from, to)) return lastFileError(from);
  return std::nullopt;
}

std::optional<FileError> copyLevel(const fs::path& from, const fs::path& to, std::size_t depth,
                                   const CopyProgress& progress) {
  struct stat status {};
  if (::lstat(from.c_str(), &status) != 0) return lastFileError(from);
  if (S_ISDIR(status.st_mode)) return copyDirectory(from, status, to, depth, progress);
  if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode)) return fileError(from, EOPNOTSUPP);
  const bool isCopied =
      S_ISREG(status.st_mode) ? copyRegularFile(from, to, progress) : copyLink(from, to);
  return isCopied ? std::nullopt : std::optional(lastFileError(from));
}

}  // namespace

std::optional<FileError> copyTree(const fs::path& from, const fs::path& to,
                                  const CopyProgress& progress) {
  return copyLevel(from, to, 0, progress);
}

}  // namespace qbdkr
