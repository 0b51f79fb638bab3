// How the helper agent gets from the host's resources to its place, and how it is made to run.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>

#include "ClientComm/HelperConfiguration.h"
#include "ClientComm/QBHPProcessList.h"
#include "ClientComm/QBHPVersion.h"
#include "Platform/Bundles/Bundle.h"
#include "Platform/Files/FileError.h"
#include "Platform/Files/FileLock.h"
#include "Platform/Files/FileTree.h"
#include "Platform/Files/Files.h"
#include "Platform/Log/Log.h"
#include "Platform/Workspace/Workspace.h"
#include "ProductClient/ProductRequest.h"
#include "ProductClient/QBHPHelperCommunicate.h"

namespace qbdkr {
namespace {

// Several hosts may bring the same helper agent at the same time. Whoever is stopped in the middle
// must not keep the others from starting.
constexpr std::chrono::seconds deploymentPatience(30);

// The failure that was logged last, as a hash; 0 after a success. One that lasts is met again by
// each launch, and is logged once.
std::atomic<std::size_t> loggedFailure{0};

void logFailedCopy(const FileError& error) {
  const std::size_t failure = std::hash<std::string>{}(error.path + '\n' + error.message);
  if (loggedFailure.exchange(failure) == failure) return;
  log("copy %@ error %@", {error.path, error.message});
}

std::string describeBelow(const std::string& item, const FileError& error) {
  return error.path == item ? error.message : error.message + ": " + error.path;
}

}  // namespace

void QBHPHelperCommunicate::extractHelper() {
  const HelperConfiguration configuration = helperConfiguration();
  if (configuration.installDirectory && !fileExists(*configuration.installDirectory)) {
    createDirectory(*configuration.installDirectory);
  }
  const auto resource = configuration.appName
                            ? Bundle::main().pathForResource(*configuration.appName, "app")
                            : std::nullopt;
  if (!resource || !configuration.installDirectory) return;
  const auto lock = FileLock::acquire(*configuration.installDirectory, deploymentPatience);
  if (lock.isTaken()) {
    logFailedCopy({*configuration.installDirectory, "another process has kept its lock"});
    return;
  }
  const std::string installed =
      appendPathComponent(*configuration.installDirectory, lastPathComponent(*resource));
  clearInterrupted(installed);
  if (fileExists(installed)) {
    const auto version = getVersionByBundlePath(*resource);
    const auto installedVersion = getVersionByBundlePath(installed);
    if (compareVersion(view(version), view(installedVersion)) != 1) {
      log("helper in conetent's version is lower");
      return;
    }
    if (QBHPProcessList::share().applicationIsRunning(view(configuration.bundleIdentifier),
                                                      installed)) {
      post(&QBHPHelperControl::exitHelper);
    }
    if (const auto error = removeItem(installed)) {
      log("remove %@ error %@", {installed, describeBelow(installed, *error)});
      return;
    }
    log("helper version = %@", {view(version)});
  }
  if (const auto error = copyItem(*resource, installed)) {
    logFailedCopy(*error);
    return;
  }
  loggedFailure = 0;
}

bool QBHPHelperCommunicate::launchHelepr() {
  const HelperConfiguration configuration = helperConfiguration();
  const String installed = configuration.installedCopy();
  if (!installed) return false;
  const std::string& path = *installed;
  if (!fileExists(path)) extractHelper();
  const bool running =
      QBHPProcessList::share().applicationIsRunning(view(configuration.bundleIdentifier), path);
  if (!running && !openFile(path)) return false;
  if (running) waitWhileOpened(path);  // by another host, or the start request would be lost
  isServerOpen_ = getDefaultHelperServerOpen();
  startHelper();
  return true;
}

String QBHPHelperCommunicate::getVersionByBundlePath(Text bundlePath) {
  const auto bundle = Bundle::withPath(std::string(bundlePath.value_or("")));
  return bundle ? bundle->infoString(kCFBundleVersionKey) : std::nullopt;
}

String QBHPHelperCommunicate::appPath(Text directory) {
  if (!directory) return std::nullopt;
  const auto names = contentsOfDirectory(std::string(*directory));
  if (!names) return std::nullopt;
  for (const std::string& name : *names) {
    if (pathExtension(name) == "app") return appendPathComponent(*directory, name);
  }
  return std::nullopt;
}

}  // namespace qbdkr
