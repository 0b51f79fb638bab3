#pragma once

#include <filesystem>
#include <string>

#include "support/ChildProcess.h"

namespace qbdkr::test {

// Makes a home directory and an environment that leads there.
class Home {
 public:
  explicit Home(std::filesystem::path directory);

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  [[nodiscard]] std::filesystem::path preferencesFile(const std::string& domain) const;
  [[nodiscard]] Environment environment() const;

 private:
  std::filesystem::path path_;
  std::filesystem::path runtime_;
};

}  // namespace qbdkr::test
