#include "tools/qbhp/Acting.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include <ClientComm/Bundle.h>
#include <ClientComm/PropertyList.h>

#include "ClientComm/InfoKeys.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): not on every system

namespace qbdkr::tool {
namespace {

namespace fs = std::filesystem;
using Dictionary = PropertyList::Dictionary;

constexpr std::string_view informationPath = "Contents/Info.plist";

// Holds back the signals that end the tool, until its destruction: the bundle is removed first.
class HeldSignals {
 public:
  HeldSignals() {
    // Macros on some systems, which must not be qualified.
    sigemptyset(&held_);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) sigaddset(&held_, number);
    ::sigprocmask(SIG_BLOCK, &held_, &before_);
    ::signal(SIGCHLD, [](int) {});  // one that is ignored need not come
  }
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;
  ~HeldSignals() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }

  [[nodiscard]] const sigset_t& before() const { return before_; }
  [[nodiscard]] int next() const {
    int number = 0;
    while (::sigwait(&held_, &number) != 0) {
    }
    return number;
  }

 private:
  sigset_t held_{};
  sigset_t before_{};
};

// Owns a directory that only this user may enter.
class PrivateDirectory {
 public:
  PrivateDirectory() {
    std::error_code error;
    const fs::path place = fs::temp_directory_path(error);
    path_ = (error ? fs::path("/tmp") : place) / "qbhp-XXXXXX";
    if (::mkdtemp(path_.data()) == nullptr) {
      throw Failure("cannot make " + path_ + ": " + std::generic_category().message(errno));
    }
  }
  PrivateDirectory(const PrivateDirectory&) = delete;
  PrivateDirectory& operator=(const PrivateDirectory&) = delete;
  ~PrivateDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Returns the keys of a host by which it sends: its identity, and its helper agent's.
Dictionary identityOf(const std::string& hostBundle) {
  const auto host = readDictionaryFile(fs::path(hostBundle) / informationPath);
  if (!host) throw Failure(hostBundle + " is no bundle: it has no Contents/Info.plist");
  if (host->text(kCFBundleIdentifierKey).value_or("").empty()) {
    throw Failure(hostBundle + " has no CFBundleIdentifier");
  }
  Dictionary identity;
  for (const std::string_view key :
       {kCFBundleIdentifierKey, kCFBundleVersionKey, kCFBundleNameKey,
        std::string_view(infokey::helperBundleIdentifier),
        std::string_view(infokey::helperMustBeInstalledCopy),
        std::string_view(infokey::heleprAppName), std::string_view(infokey::helperAppName),
        std::string_view(infokey::helperLoactionPath),
        std::string_view(infokey::helperLocationPath)}) {
    if (const PropertyList* value = host->find(key)) identity.set(key, *value);
  }
  return identity;
}

// Makes the bundle in a directory, and returns its executable.
fs::path makeBundle(const fs::path& directory, Dictionary identity) {
  const Bundle& own = Bundle::main();
  const auto program = own.executablePath();
  if (!program) throw Failure("this program does not run from its bundle");
  const fs::path bundle = directory / "Acting.app";
  fs::path place = bundle / fs::path(*program).lexically_relative(own.bundlePath());
  identity.set(kCFBundleExecutableKey, PropertyList(place.filename().string()));
  const auto information = xmlPropertyList(PropertyList(std::move(identity)));
  if (!information) throw Failure("cannot write the host's identity");
  fs::create_directories(place.parent_path());
  std::error_code isElsewhere;
  fs::create_hard_link(*program, place, isElsewhere);
  if (isElsewhere) fs::copy_file(*program, place);
  // The libraries are looked for beside the executable, whichever way leads there.
  fs::create_symlink(fs::path(own.bundlePath()) / "Contents/Frameworks",
                     bundle / "Contents/Frameworks");
  std::ofstream file(bundle / informationPath, std::ios::binary);
  if (!(file << *information).flush()) throw Failure("cannot write to " + directory.string());
  return place;
}

pid_t start(const fs::path& program, const std::vector<std::string>& arguments,
            const sigset_t& signals) {
  std::vector<std::string> texts{"qbhp"};
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  posix_spawnattr_t attributes{};
  ::posix_spawnattr_init(&attributes);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  ::posix_spawnattr_setsigmask(&attributes, &signals);
  pid_t process = -1;
  const int error =
      ::posix_spawn(&process, program.c_str(), nullptr, &attributes, pointers.data(), environ);
  ::posix_spawnattr_destroy(&attributes);
  if (error != 0) {
    throw Failure("cannot run a copy in " + program.string() + ": " +
                  std::generic_category().message(error) + "; TMPDIR may name another place");
  }
  return process;
}

struct End {
  int status;  // as waitpid() gives it
  int signal;  // the last one that was passed on; 0 if there was none
};

End awaitEnd(pid_t process, const HeldSignals& signals) {
  End end{0, 0};
  while (::waitpid(process, &end.status, WNOHANG) == 0) {
    const int number = signals.next();
    if (number == SIGCHLD) continue;
    end.signal = number;
    ::kill(process, number);
  }
  return end;
}

End runIn(const std::string& hostBundle, const std::vector<std::string>& arguments) {
  const Dictionary identity = identityOf(hostBundle);
  complain("qbhp " + arguments.front(),
           "acts for " + identity.text(kCFBundleIdentifierKey).value_or(""));
  const HeldSignals signals;
  try {
    const PrivateDirectory directory;
    const fs::path program = makeBundle(directory.path(), identity);
    return awaitEnd(start(program, arguments, signals.before()), signals);
  } catch (const fs::filesystem_error& error) {
    throw Failure(std::string("cannot make the bundle to act from: ") + error.code().message());
  }
}

}  // namespace

Exit actAs(const std::string& hostBundle, const std::vector<std::string>& arguments) {
  const End end = runIn(hostBundle, arguments);
  if (end.signal != 0) ::raise(end.signal);
  if (WIFEXITED(end.status)) return static_cast<Exit>(WEXITSTATUS(end.status));
  throw Failure("the copy that acts for the host was ended by signal " +
                std::to_string(WTERMSIG(end.status)));
}

}  // namespace qbdkr::tool
