#pragma once

#include <filesystem>
#include <string>

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

// Makes a hard link at another path, or a copy where the file system refuses one.
void linkOrCopy(const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace qbdkr::test
