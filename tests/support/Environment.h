#pragma once

#include <filesystem>
#include <string>

namespace qbdkr::test {

// A directory of its own, removed with everything in it.
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

}  // namespace qbdkr::test
