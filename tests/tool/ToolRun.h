#pragma once

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/Environment.h"
#include "support/Home.h"

namespace qbdkr::test {

using JSON = nlohmann::ordered_json;

// The output of a run of the tool, and its exit code.
struct ToolResult {
  int code;
  std::string output;
  std::string errors;

  [[nodiscard]] JSON json() const { return JSON::parse(output); }
};

// Runs the tool by a link, as it is installed.
class Tool {
 public:
  // The directory gets the link, "bin/qbhp".
  Tool(const std::filesystem::path& directory, Environment environment);

  [[nodiscard]] std::string program() const { return program_; }
  [[nodiscard]] const Environment& environment() const { return environment_; }

  [[nodiscard]] ToolResult run(const std::vector<std::string>& words) const;
  // Runs it on a terminal of 80 columns, whose line ends are \r\n. Errors are part of the output.
  [[nodiscard]] ToolResult runOnTerminal(const std::string& words,
                                         const Environment& settings = {}) const;
  // Runs a command of the shell, in which "qbhp" is the tool.
  [[nodiscard]] ToolResult runShell(const std::string& command) const;
  [[nodiscard]] std::unique_ptr<ChildProcess> begin(const std::vector<std::string>& words) const;

 private:
  std::string program_;
  Environment environment_;
};

// Tells whether a failure names the bus that is missing, and what to do about it.
[[nodiscard]] bool namesMissingBus(const std::string& errors, const std::string& address);

// Runs the tool with a home of its own, without a bus.
struct ToolAtHome {
  ToolAtHome() : home(directory.path() / "home"), tool(directory.path(), home.environment()) {}

  [[nodiscard]] std::string path(const std::string& name) const {
    return (directory.path() / name).string();
  }

  TemporaryDirectory directory;
  Home home;
  Tool tool;
};

}  // namespace qbdkr::test
