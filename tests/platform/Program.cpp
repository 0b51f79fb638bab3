#include "Program.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string_view>

#include <ClientComm/Bundle.h>
#include <ClientComm/UserDefaults.h>

#include "Platform/Files/FileLock.h"
#include "Platform/Files/Files.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

constexpr uid_t ordinaryUser = 65534;

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

int setKeys(const std::string& domain, const std::string& key, int count) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  UserDefaults defaults(domain);
  for (int i = 0; i < count; ++i) {
    const PropertyList value(i);
    defaults.setObject(key + std::to_string(i), value);
    // While others hold the lock, what was set is kept for the next time.
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

}  // namespace

bool isTask(int argc, char** argv) {
  if (argc < 2) return false;
  const std::string_view task = argv[1];
  return task == "hold" || task == "wait" || task == "set" || task == "main-bundle";
}

int runTask(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments[0] == "hold") return hold(arguments.at(1));
  if (arguments[0] == "set") {
    return setKeys(arguments.at(1), arguments.at(2), std::stoi(arguments.at(3)));
  }
  if (arguments[0] == "main-bundle") return showMainBundle();
  std::cout << "waiting" << std::endl;
  waitForEndOfInput();
  return 0;
}

fs::path ownExecutable() { return fs::read_symlink("/proc/self/exe"); }

void putOwnExecutable(const fs::path& path) {
  fs::create_directories(path.parent_path());
  std::error_code error;
  fs::create_hard_link(ownExecutable(), path, error);
  if (error) fs::copy_file(ownExecutable(), path);
}

Process::Process(std::vector<std::string> arguments, const fs::path& executable) {
  std::array<int, 2> input{};
  std::array<int, 2> output{};
  if (pipe2(input.data(), O_CLOEXEC) != 0 || pipe2(output.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  input_ = input[1];
  output_ = output[0];
  arguments.insert(arguments.begin(), executable);
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  const int error =
      posix_spawn(&processID_, pointers[0], &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(input[0]);
  close(output[1]);
  if (error != 0) throw std::runtime_error("the process does not start");
}

Process::~Process() {
  finish();
  close(output_);
}

std::string Process::readLine() {
  std::string line;
  for (char c = 0; read(output_, &c, 1) == 1 && c != '\n';) line += c;
  return line;
}

std::string Process::readAll() {
  std::string all;
  for (char c = 0; read(output_, &c, 1) == 1;) all += c;
  return all;
}

void Process::kill() { ::kill(processID_, SIGKILL); }

int Process::finish() {
  if (processID_ == 0) return 0;
  close(input_);
  int status = 0;
  while (waitpid(processID_, &status, 0) < 0) {
  }
  processID_ = 0;
  return status;
}

bool asOrdinaryUser(const std::function<bool()>& body) {
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child == 0) {
    if (geteuid() == 0 && (setgid(ordinaryUser) != 0 || setuid(ordinaryUser) != 0)) _exit(2);
    _exit(body() ? 0 : 1);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
  }
  return status == 0;
}

void giveToOrdinaryUser(const fs::path& root) {
  if (geteuid() != 0) return;
  const auto give = [](const fs::path& path) {
    if (lchown(path.c_str(), ordinaryUser, ordinaryUser) != 0) {
      throw std::runtime_error("the owner cannot be changed");
    }
  };
  give(root);
  for (const auto& entry : fs::recursive_directory_iterator(root)) give(entry.path());
}

}  // namespace qbdkr::test
