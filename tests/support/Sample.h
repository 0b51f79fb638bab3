#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/Scene.h"

namespace qbdkr::test {

// Copies the sample host and its helper agent as built, with the identifiers of one test. The
// version of the host differs from the helper agent's.
class Sample {
 public:
  static constexpr const char* hostVersion = "7.1";
  static constexpr const char* helperVersion = "1.0";

  struct Versions {
    std::string host = hostVersion;
    std::string helper = helperVersion;
  };

  explicit Sample(Scene& scene) : Sample(scene, Versions()) {}
  // Replaces an earlier copy, as an upgrade of the application does.
  Sample(Scene& scene, const Versions& versions);

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

  // Return the paths of the helper agent's state and of its installed copy.
  [[nodiscard]] std::filesystem::path database() const;
  [[nodiscard]] std::filesystem::path installedHelper() const;

  // Starts a host that makes the calls on its standard input.
  [[nodiscard]] std::unique_ptr<ChildProcess> start() const;

  // Starts a host for one call and returns the result.
  [[nodiscard]] std::string call(const std::string& name,
                                 const std::vector<std::string>& arguments = {}) const;

  // Queries the helper agent's state with another program and returns the rows as JSON.
  [[nodiscard]] std::string query(const std::string& sql) const;

 private:
  [[nodiscard]] std::string executable() const;
  void replaceIdentifiers(const std::filesystem::path& file) const;

  Scene& scene_;
  std::filesystem::path path_;
};

}  // namespace qbdkr::test
