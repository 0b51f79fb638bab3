#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "Platform/Base/Descriptor.h"
#include "support/Patience.h"

namespace qbdkr::test {

// A file to which other processes append lines, read as it grows.
class TranscriptFile {
 public:
  // Creates the file.
  explicit TranscriptFile(std::filesystem::path path);

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

  // What stands there now, whole lines only.
  const std::vector<std::string>& lines();
  std::size_t count(const std::string& part);

  // The first line from the given one on that holds all parts; throws, with the whole transcript,
  // at the deadline.
  std::string waitFor(const std::vector<std::string>& parts, std::size_t from = 0,
                      std::chrono::milliseconds time = patience);
  // Until that many lines hold the part.
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
