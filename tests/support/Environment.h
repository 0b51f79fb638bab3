#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace qbdkr::test {

// Owns a new directory and removes it with its contents.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory();

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

void writeFile(const std::filesystem::path& path, const std::string& contents);
std::string readFile(const std::filesystem::path& path);
// Replaces a text wherever it is in a file.
void replaceInFile(const std::filesystem::path& path, const std::string& from,
                   const std::string& to);

// Returns the names in a directory, sorted.
std::vector<std::string> namesIn(const std::filesystem::path& directory);
// Returns the permission bits of a file; of a link, its own.
mode_t modeOf(const std::filesystem::path& path);

// Makes a hard link at another path, or a copy where the file system refuses one.
void linkOrCopy(const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace qbdkr::test
