#include "Host.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* rootVariable = "QBDKR_TEST_HOST";
constexpr const char* bodyVariable = "QBDKR_TEST_HOST_BODY";

void putExecutable(const fs::path& path) {
  const fs::path self = fs::read_symlink("/proc/self/exe");
  fs::create_directories(path.parent_path());
  std::error_code error;
  fs::create_hard_link(self, path, error);
  if (error) fs::copy_file(self, path);
}

// Bodies are counted, so that a test may have several.
int nextBody(const std::string& test) {
  static std::string current;
  static int count = 0;
  if (test != current) {
    current = test;
    count = 0;
  }
  return count++;
}

int runAndWait(const fs::path& executable, std::vector<std::string> arguments,
               const fs::path& output) {
  std::vector<char*> pointers;
  arguments.insert(arguments.begin(), executable);
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(),
                                   O_WRONLY | O_CREAT | O_APPEND, 0600);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  pid_t child = 0;
  const int error =
      posix_spawn(&child, executable.c_str(), &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) return -1;
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
  }
  return status;
}

Host hostIn(const fs::path& root) { return {root / "Host.app", root / "home"}; }

}  // namespace

fs::path Host::defaultsFile(const std::string& domain) const {
  return home / ".config/preferences" / (domain + ".plist");
}

void Host::writeDefaults(const std::string& domain, const PropertyList::Dictionary& values) const {
  writeFile(defaultsFile(domain), xmlPropertyList(values).value());
}

PropertyList::Dictionary Host::readDefaults(const std::string& domain) const {
  return readDictionaryFile(defaultsFile(domain)).value_or(PropertyList::Dictionary());
}

PropertyList::Dictionary hostInformation() {
  return {{"CFBundleIdentifier", hostIdentifier},
          {"CFBundleName", "Host"},
          {"CFBundleVersion", "3.1"},
          {"PID", "4711"},
          {"Helper Bundle indentifiter", helperIdentifier}};
}

void writeBundle(const fs::path& bundle, const PropertyList::Dictionary& info) {
  writeFile(bundle / "Contents/Info.plist", xmlPropertyList(info).value());
}

void useHome(const fs::path& home) {
  fs::create_directories(home / ".config");
  setenv("HOME", home.c_str(), 1);
  setenv("XDG_CONFIG_HOME", (home / ".config").c_str(), 1);
  // A bus of the machine is no part of a unit test.
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
  for (const char* variable :
       {"JOURNAL_STREAM", "LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG", "XDG_RUNTIME_DIR"}) {
    unsetenv(variable);
  }
}

Bundle bundleWith(const PropertyList::Dictionary& info) {
  const TemporaryDirectory directory;
  writeBundle(directory.path() / "Host.app", info);
  return Bundle::withPath(directory.path() / "Host.app").value();
}

Host writeHost(const fs::path& root, const PropertyList::Dictionary& info,
               const std::map<std::string, std::string>& infoPlistStrings) {
  Host host = hostIn(root);
  writeBundle(host.bundle, info);
  for (const auto& [language, text] : infoPlistStrings) {
    writeFile(host.resources() / (language + ".lproj") / "InfoPlist.strings", text);
  }
  return host;
}

void enterPrivateHome() {
  if (const char* root = std::getenv(rootVariable)) return useHome(hostIn(root).home);
  static const TemporaryDirectory home;
  useHome(home.path());
}

void inHost(const PropertyList::Dictionary& info, const std::function<void(const Host&)>& body,
            const std::map<std::string, std::string>& infoPlistStrings) {
  const auto* test = testing::UnitTest::GetInstance()->current_test_info();
  const std::string name = std::string(test->test_suite_name()) + '.' + test->name();
  const std::string number = std::to_string(nextBody(name));
  if (const char* root = std::getenv(rootVariable)) {
    if (number != std::getenv(bodyVariable)) return;
    body(hostIn(root));
    writeFile(fs::path(root) / "ran", "");
    return;
  }

  const TemporaryDirectory root;
  const Host host = writeHost(root.path(), info, infoPlistStrings);
  const fs::path executable = host.bundle / "Contents/Linux/Host";
  putExecutable(executable);
  setenv(rootVariable, root.path().c_str(), 1);
  setenv(bodyVariable, number.c_str(), 1);
  const fs::path output = root.path() / "output";
  const int status = runAndWait(executable, {"--gtest_filter=" + name, "--gtest_color=no"}, output);
  unsetenv(rootVariable);
  unsetenv(bodyVariable);
  if (status != 0 || !fs::exists(root.path() / "ran")) {
    ADD_FAILURE() << "body " << number << " ended with status " << status << ":\n"
                  << readFile(output);
  }
}

void inUsedHost(const PropertyList::Dictionary& info, const std::function<void(const Host&)>& body,
                const std::map<std::string, std::string>& infoPlistStrings) {
  inHost(info, afterEarlierStarts(body), infoPlistStrings);
}

std::function<void(const Host&)> afterEarlierStarts(const std::function<void(const Host&)>& body) {
  return [body](const Host& host) {
    host.writeDefaults(hostIdentifier, {{"IsFirstStart", false},
                                        {"FirstStartPID", firstProduct},
                                        {"DataCollectPID", dataProduct}});
    body(host);
  };
}

RunningProcess::~RunningProcess() { end(); }

void RunningProcess::start(std::vector<std::string> arguments) {
  std::array<int, 2> input{};
  std::array<int, 2> output{};
  if (pipe2(input.data(), O_CLOEXEC) != 0 || pipe2(output.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  input_ = input[1];
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
  // The call above returns before the kernel shows the new program everywhere.
  char ready = 0;
  const bool runs = error == 0 && read(output[0], &ready, 1) == 1;
  close(output[0]);
  if (!runs) throw std::runtime_error("the program does not start");
}

void RunningProcess::end() {
  if (processID_ == 0) return;
  close(input_);
  while (waitpid(processID_, nullptr, 0) < 0) {
  }
  processID_ = 0;
}

RunningApplication::RunningApplication(const fs::path& bundle,
                                       const PropertyList::Dictionary& info) {
  writeBundle(bundle, info);
  const fs::path executable = bundle / "Contents/Linux/Application";
  putExecutable(executable);
  start({executable, argument});
}

RunningDaemon::RunningDaemon(const std::string& name) {
  const fs::path path = directory_.path() / name;
  fs::create_symlink("/bin/sh", path);
  start({path, "-c", "echo; read line"});
}

}  // namespace qbdkr::test
