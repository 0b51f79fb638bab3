#include "Host.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "support/OwnExecutable.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* rootVariable = "QBDKR_TEST_HOST";
constexpr const char* bodyVariable = "QBDKR_TEST_HOST_BODY";

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

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + '\n';
  return text;
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

PropertyList::Dictionary informationWithHelper() {
  auto info = hostInformation();
  info.set("Helepr App name", "Helper");
  info.set("Helper loaction path", "~/Library/Example");
  return info;
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
  putOwnExecutable(executable);
  Environment environment = ownEnvironment();
  environment[rootVariable] = root.path();
  environment[bodyVariable] = number;
  ChildProcess process({executable, "--gtest_filter=" + name, "--gtest_color=no"},
                       {.environment = environment});
  const int status = process.wait(longPatience);
  if (status != 0 || !fs::exists(root.path() / "ran")) {
    ADD_FAILURE() << "body " << number << " ended with status " << status << ":\n"
                  << joined(process.outputToItsEnd()) << joined(process.logToItsEnd());
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

namespace {

fs::path makeApplication(const fs::path& bundle, const PropertyList::Dictionary& info) {
  writeBundle(bundle, info);
  const fs::path executable = bundle / "Contents/Linux/Application";
  putOwnExecutable(executable);
  return executable;
}

fs::path makeDaemon(const fs::path& path) {
  fs::create_symlink("/bin/sh", path);
  return path;
}

}  // namespace

// The first line comes after exec(), when the kernel shows the new program everywhere.
RunningApplication::RunningApplication(const fs::path& bundle, const PropertyList::Dictionary& info)
    : process_({makeApplication(bundle, info), argument}, {.environment = ownEnvironment()}) {
  process_.firstLine();
}

RunningDaemon::RunningDaemon(const std::string& name)
    : process_({makeDaemon(directory_.path() / name), "-c", "echo; read line"},
               {.environment = ownEnvironment()}) {
  process_.firstLine();
}

}  // namespace qbdkr::test
