#include "support/Environment.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace qbdkr::test {

namespace fs = std::filesystem;

TemporaryDirectory::TemporaryDirectory() {
  std::string path = fs::temp_directory_path() / "qbdkr-test-XXXXXX";
  if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("no temporary directory");
  path_ = fs::canonical(path);
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

void writeFile(const fs::path& path, const std::string& contents) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
}

std::string readFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void replaceInFile(const fs::path& path, const std::string& from, const std::string& to) {
  std::string text = readFile(path);
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  writeFile(path, text);
}

std::vector<std::string> namesIn(const fs::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) {
    names.push_back(entry.path().filename());
  }
  std::ranges::sort(names);
  return names;
}

mode_t modeOf(const fs::path& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777U;
}

void linkOrCopy(const fs::path& from, const fs::path& to) {
  fs::create_directories(to.parent_path());
  std::error_code error;
  fs::create_hard_link(fs::canonical(from), to, error);
  if (error) fs::copy_file(from, to);
}

}  // namespace qbdkr::test
