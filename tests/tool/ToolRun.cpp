#include "tool/ToolRun.h"

#include <sys/wait.h>

#include <utility>

namespace qbdkr::test {

namespace fs = std::filesystem;

namespace {

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const auto& line : lines) text += line + '\n';
  return text;
}

ToolResult resultOf(ChildProcess& process) {
  process.closeInput();
  ToolResult result{0, joined(process.outputToItsEnd()), joined(process.logToItsEnd())};
  const int status = process.wait();
  result.code = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return result;
}

}  // namespace

Tool::Tool(const fs::path& directory, Environment environment)
    : program_((directory / "bin/qbhp").string()), environment_(std::move(environment)) {
  fs::create_directories(directory / "bin");
  fs::create_symlink(QBDKR_TOOL, program_);
  environment_["PATH"] = (directory / "bin").string() + ":/usr/bin:/bin";
  environment_["TMPDIR"] = (directory / "tmp").string();
  fs::create_directories(directory / "tmp");
}

std::unique_ptr<ChildProcess> Tool::begin(const std::vector<std::string>& words) const {
  std::vector<std::string> command{program_};
  command.insert(command.end(), words.begin(), words.end());
  return std::make_unique<ChildProcess>(command, SpawnOptions{.environment = environment_});
}

ToolResult Tool::run(const std::vector<std::string>& words) const {
  return resultOf(*begin(words));
}

ToolResult Tool::runShell(const std::string& command) const {
  ChildProcess shell({"/bin/sh", "-c", command}, {.environment = environment_});
  return resultOf(shell);
}

bool namesMissingBus(const std::string& errors, const std::string& address) {
  return errors.find("the bus " + address + " cannot be reached: ") != std::string::npos &&
         errors.ends_with(
             ". Run this in the session of the application, or set DBUS_SESSION_BUS_ADDRESS to the"
             " address of the bus there\n");
}

ToolResult Tool::runOnTerminal(const std::string& words, const Environment& settings) const {
  Environment environment = environment_;
  environment["TERM"] = "xterm";
  environment["SHELL"] = "/bin/sh";
  for (const auto& [key, value] : settings) environment[key] = value;
  ChildProcess terminal(
      {"/usr/bin/script", "-qec", "stty cols 80 -opost; qbhp " + words, "/dev/null"},
      {.environment = environment});
  return resultOf(terminal);
}

}  // namespace qbdkr::test
