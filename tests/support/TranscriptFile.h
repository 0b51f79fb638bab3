#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "Platform/Base/Descriptor.h"
#include "support/Patience.h"

namespace qbdkr::test {

// Reads a file as other processes append lines to it.
class TranscriptFile {
 public:
  // Creates the file.
  explicit TranscriptFile(std::filesystem::path path);

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

  // Returns all complete lines so far.
  const std::vector<std::string>& lines();
  std::size_t count(const std::string& part);

  // Waits for a line with all parts in it and returns it. Skips the lines before FROM. Throws an
  // error with the transcript at the deadline.
  std::string waitFor(const std::vector<std::string>& parts, std::size_t from = 0,
                      std::chrono::milliseconds time = patience);
  // Waits until that many lines have the part in them.
  void waitForCount(const std::string& part, std::size_t wanted,
                    std::chrono::milliseconds time = patience);

 private:
  void waitUntil(const std::function<bool()>& holds, const std::string& what,
                 std::chrono::milliseconds time);

  std::filesystem::path path_;
  Descriptor watch_;
  std::size_t read_ = 0;
  std::vector<std::string> lines_;
};

}  // namespace qbdkr::test
