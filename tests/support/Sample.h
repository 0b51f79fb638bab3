#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/Scene.h"

namespace qbdkr::test {

// The sample host and its helper agent as they are built, with the identifiers of one test, and
// with a version of the host that is not the helper agent's.
class Sample {
 public:
  static constexpr const char* hostVersion = "7.1";

  explicit Sample(Scene& scene);

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

  // The helper agent's state, and where it is installed.
  [[nodiscard]] std::filesystem::path database() const;
  [[nodiscard]] std::filesystem::path installedHelper() const;

  // A host that makes the calls that are written to its standard input.
  [[nodiscard]] std::unique_ptr<ChildProcess> start() const;

  // A host that makes one call, and its result.
  [[nodiscard]] std::string call(const std::string& name,
                                 const std::vector<std::string>& arguments = {}) const;

  // What an SQL query of the helper agent's state gives, read by another program: the rows as JSON.
  [[nodiscard]] std::string query(const std::string& sql) const;

 private:
  [[nodiscard]] std::string executable() const;
  void replaceIdentifiers(const std::filesystem::path& file) const;

  Scene& scene_;
  std::filesystem::path path_;
};

}  // namespace qbdkr::test
