#include "platform/TaskProcess.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <string_view>

#include <ClientComm/Bundle.h>
#include <ClientComm/UserDefaults.h>

#include "Platform/Files/FileLock.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

void waitForEndOfInput() {
  char ignored = 0;
  while (read(STDIN_FILENO, &ignored, 1) > 0) {
  }
}

int hold(const std::string& path) {
  const auto lock = FileLock::acquire(path, std::chrono::seconds(20));
  std::cout << (lock.isHeld() ? "locked" : "failed") << std::endl;
  waitForEndOfInput();
  return 0;
}

// Makes the process undumpable: its files in /proc then belong to root.
int hide(uid_t user) {
  const bool hidden = setuid(user) == 0 && prctl(PR_SET_DUMPABLE, 0) == 0;
  std::cout << (hidden ? "hidden" : "failed") << std::endl;
  waitForEndOfInput();
  return 0;
}

int setKeys(const std::string& domain, const std::string& key, int count) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  UserDefaults defaults(domain);
  for (int i = 0; i < count; ++i) {
    const PropertyList value(i);
    defaults.setObject(key + std::to_string(i), value);
    // While another process holds the lock, the values wait for the next call.
    while (!defaults.synchronize()) {
      if (std::chrono::steady_clock::now() >= deadline) return 1;
    }
  }
  return 0;
}

int showMainBundle() {
  const Bundle& bundle = Bundle::main();
  std::cout << bundle.bundlePath() << '\n'
            << bundle.infoString("CFBundleIdentifier").value_or("(none)") << '\n'
            << bundle.infoString("CFBundleName").value_or("(none)") << '\n'
            << bundle.executablePath().value_or("(none)") << std::endl;
  return 0;
}

std::vector<std::string> commandFor(const fs::path& executable,
                                    const std::vector<std::string>& arguments) {
  std::vector<std::string> command{executable};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

}  // namespace

TaskProcess::TaskProcess(const std::vector<std::string>& arguments, const fs::path& executable)
    : ChildProcess(commandFor(executable, arguments), {.environment = ownEnvironment()}) {}

bool isTask(int argc, char** argv) {
  if (argc < 2) return false;
  const std::string_view task = argv[1];
  return task == "hold" || task == "wait" || task == "hide" || task == "set" ||
         task == "main-bundle";
}

int runTask(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments[0] == "hold") return hold(arguments.at(1));
  if (arguments[0] == "hide") return hide(static_cast<uid_t>(std::stoul(arguments.at(1))));
  if (arguments[0] == "set") {
    return setKeys(arguments.at(1), arguments.at(2), std::stoi(arguments.at(3)));
  }
  if (arguments[0] == "main-bundle") return showMainBundle();
  std::cout << "waiting" << std::endl;
  waitForEndOfInput();
  return 0;
}

}  // namespace qbdkr::test
