#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tools/qbhp/Output.h"

namespace qbdkr::tool {

// The exit codes of the tool. "no" is said by a failure, too.
enum class Exit { yes = 0, no = 1, usage = 2 };

// Ends a command with Exit::no and a sentence on standard error. Text from outside needs no escapes
// in it.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Does the same with Exit::usage.
class UsageFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Runs a command after its arguments were parsed.
using Action = std::function<Exit(Output& output)>;

// Holds all commands, and the parser of their arguments.
class Commands {
 public:
  explicit Commands(CLI::App& tool) : tool_(&tool) {}

  // Adds a command, or one under a group of commands. The summary has no full stop.
  CLI::App& add(const std::string& name, const std::string& summary, Action action);
  CLI::App& add(CLI::App& group, const std::string& name, const std::string& summary,
                Action action);
  CLI::App& addGroup(const std::string& name, const std::string& summary);

  // Adds "--json"; wantsJSON() tells afterwards whether it was given.
  void offerJSON(CLI::App& command);
  [[nodiscard]] bool wantsJSON() const { return wantsJSON_; }

  // Adds an option with a time, from the shortest one to 1,000,000 s.
  static void offerSeconds(CLI::App& command, const std::string& name, double& seconds,
                           const std::string& summary, double shortest);

  // Parses the words after the name of the program; throws as the parser does. Every word after
  // "--" is an argument, and every argument arrives byte for byte. Call it after all commands were
  // added.
  void parse(const std::vector<std::string>& words);
  // Runs the command that was parsed.
  [[nodiscard]] Exit run(Output& output) const;
  // Returns the words that name the command, as far as it was parsed: "qbhp plist read".
  [[nodiscard]] std::string parsedName() const;
  // Says after a failure why those words name no command; absent if they do.
  [[nodiscard]] std::optional<std::string> faultOfName() const;

 private:
  [[nodiscard]] const CLI::App& parsed() const;
  static void unwrapArguments(CLI::App& command);

  CLI::App* tool_;
  std::map<const CLI::App*, Action> actions_;
  bool wantsJSON_ = false;
};

// Ends the help of every command.
inline constexpr const char* exitCodes =
    "Exit codes: 0 success, 1 the answer is no or the command failed, 2 wrong usage.";

// Writes a sentence to standard error, after the words that name the command.
void complain(const std::string& name, std::string_view sentence);

// Add the commands, each in a file of its own.
void addCheckHelper(Commands& commands);
void addDefaults(Commands& commands);
void addDoctor(Commands& commands);
void addEvents(Commands& commands);
void addNewProduct(Commands& commands);
void addProcesses(Commands& commands);
void addPropertyLists(Commands& commands);
void addVersions(Commands& commands);
void addWatch(Commands& commands);

}  // namespace qbdkr::tool
