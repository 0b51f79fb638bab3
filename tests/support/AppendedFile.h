#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace qbdkr::test {

// Reads the lines that other processes append with appendLine(), in their order, and keeps the file
// short: when it has grown it is put aside, and deleted when the next one has grown.
class AppendedFile {
 public:
  explicit AppendedFile(std::filesystem::path path);

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

  // Returns the lines since the last call. A line that was complete before the call is among them.
  std::vector<std::string> take();

 private:
  struct Part {
    std::size_t read = 0;
    std::string partial;
  };

  static void readOn(const std::filesystem::path& path, Part& part,
                     std::vector<std::string>& lines);

  std::filesystem::path path_;
  std::filesystem::path asidePath_;
  Part current_;
  Part aside_;
};

}  // namespace qbdkr::test
