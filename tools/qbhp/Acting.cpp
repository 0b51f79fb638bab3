#include "tools/qbhp/Acting.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>
#include <utility>

#include <ClientComm/Bundle.h>
#include <ClientComm/PropertyList.h>

#include "ClientComm/InfoKeys.h"
#include "Platform/Base/ArgumentPointers.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "tools/qbhp/HeldSignals.h"
#include "tools/qbhp/PrivateDirectory.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): not on every system

namespace qbdkr::tool {
namespace {

namespace fs = std::filesystem;
using Dictionary = PropertyList::Dictionary;

constexpr std::string_view informationPath = "Contents/Info.plist";

// Returns the keys of a host by which it sends: its identity, and its helper agent's.
Dictionary identityOf(const std::string& hostBundle) {
  const fs::path file = fs::path(hostBundle) / informationPath;
  const auto host = readDictionaryFile(file);
  std::error_code error;
  if (!host && !fs::exists(file, error)) {
    throw Failure(hostBundle + " is no bundle: it has no Contents/Info.plist");
  }
  if (!host) {
    throw Failure(file.string() + " is no property list with a dictionary: " +
                  faultOfDictionaryFile(file).value_or("it changes"));
  }
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
  const fs::path bundle = directory / "Acting.app";
  fs::path place = placeOwnProgram(bundle);
  identity.set(kCFBundleExecutableKey, PropertyList(place.filename().string()));
  const auto information = xmlPropertyList(PropertyList(std::move(identity)));
  if (!information) throw Failure("the host's identity has a control character");
  std::ofstream file(bundle / informationPath, std::ios::binary);
  if (!(file << *information).flush()) throw Failure("cannot write to " + directory.string());
  return place;
}

pid_t start(const fs::path& program, const std::vector<std::string>& arguments,
            const sigset_t& signals) {
  std::vector<std::string> texts{"qbhp"};
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  const auto pointers = pointersTo(texts);
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

fs::path placeOwnProgram(const fs::path& directory) {
  const Bundle& own = Bundle::main();
  const auto program = own.executablePath();
  if (!program) throw Failure("this program does not run from its bundle");
  fs::path place = directory / fs::path(*program).lexically_relative(own.bundlePath());
  fs::create_directories(place.parent_path());
  std::error_code isElsewhere;
  fs::create_hard_link(*program, place, isElsewhere);
  if (isElsewhere) fs::copy_file(*program, place);
  // The libraries are looked for beside the executable, whichever way leads there.
  fs::create_symlink(fs::path(own.bundlePath()) / "Contents/Frameworks",
                     directory / "Contents/Frameworks");
  return place;
}

Exit actAs(const std::string& hostBundle, const std::vector<std::string>& arguments) {
  const End end = runIn(hostBundle, arguments);
  if (end.signal != 0) ::raise(end.signal);
  if (WIFEXITED(end.status)) return static_cast<Exit>(WEXITSTATUS(end.status));
  throw Failure("the copy that acts for the host was ended by signal " +
                std::to_string(WTERMSIG(end.status)));
}

}  // namespace qbdkr::tool
