#include "ProductClient/HelperInstaller.h"

#include <chrono>
#include <optional>
#include <utility>

#include <ClientComm/Bundle.h>
#include <ClientComm/LogHandler.h>
#include <ClientComm/QBHPVersion.h>

#include "Platform/Files/FileError.h"
#include "Platform/Files/FileTree.h"
#include "Platform/Files/Files.h"
#include "Platform/Record/Record.h"
#include "ProductClient/InstallationProgress.h"

namespace qbdkr {
namespace {

// Several hosts may install the same helper agent at once. One that is stopped while it does must
// not keep the others from starting.
constexpr std::chrono::seconds deploymentPatience(30);

// Another host may be opening the helper agent, and wait 10 s for it to check in.
constexpr std::chrono::seconds openingPatience(15);

std::string describeBelow(const std::string& item, const FileError& error) {
  return error.path == item ? error.message : error.message + ": " + error.path;
}

std::string versionText(const String& version) {
  return version ? '"' + *version + '"' : "no version";
}

void recordFailure(const FileError& error) {
  record(StepKind::deploymentFailed, error.number, error.path, error.message);
}

}  // namespace

HelperInstaller::HelperInstaller(HostConfiguration configuration, SystemCalls system,
                                 HelperStates& states, std::function<void()> endRunning)
    : configuration_(std::move(configuration)),
      system_(std::move(system)),
      states_(states),
      endRunning_(std::move(endRunning)) {}

void HelperInstaller::install() {
  const auto directory = configuration_.installDirectory();
  if (directory && !fileExists(*directory)) createDirectory(*directory);
  const auto resource = configuration_.helperResource();
  if (!resource) recordMissingResource();
  if (!resource || !directory) return;
  const auto lock = system_.lock(*directory, deploymentPatience);
  if (lock.isTaken()) {
    logFailedCopy({*directory, "another process has kept its lock"});
    return;
  }
  const std::string installed = appendPathComponent(*directory, lastPathComponent(*resource));
  clearInterrupted(installed);
  if (fileExists(installed)) return replaceIfOlder(*resource, installed);
  copy(*resource, installed);
}

void HelperInstaller::copy(const std::string& resource, const std::string& installed) {
  InstallationProgress progress(states_, resource);
  if (const auto error = copyItem(resource, installed, progress.counter())) {
    return logFailedCopy(*error);
  }
  progress.complete();
  loggedFailure_ = 0;
  record(StepKind::helperInstalled, installed, versionText(versionOfBundle(installed)));
}

// Copies first, while the older one is in use: a copy that cannot be made costs nothing.
void HelperInstaller::replaceIfOlder(const std::string& resource, const std::string& installed) {
  const auto version = versionOfBundle(resource);
  const auto installedVersion = versionOfBundle(installed);
  if (compareVersion(view(version), view(installedVersion)) != 1) {
    record(StepKind::helperKept, installed,
           versionText(installedVersion) + " is installed, " + versionText(version) +
               " is among the resources");
    return log(LogCategory::deployment, "helper in conetent's version is lower");
  }
  ItemReplacement replacement;
  std::optional<InstallationProgress> progress;
  auto failure = removalObstacleOf(installed);
  if (!failure) {
    progress.emplace(states_, resource);
    if (const auto error = replacement.prepare(resource, installed, progress->counter())) {
      return logFailedCopy(*error);
    }
    progress->complete();
  }
  // Keeps other hosts from opening the older one once more.
  const auto lock = system_.lock(installed, openingPatience);
  if (lock.isTaken()) return logFailedCopy({installed, "another process has kept its lock"});
  endRunning_();
  if (!failure) failure = replacement.exchange();
  if (failure) return logFailedRemoval(installed, *failure);
  states_.tell(HelperReplaced());
  loggedFailure_ = 0;
  record(StepKind::helperUpgraded, installed,
         versionText(installedVersion) + " by " + versionText(version));
  log(LogCategory::deployment, "helper version = %@", {publicArgument(view(version))});
}

bool HelperInstaller::repair() {
  const auto directory = configuration_.installDirectory();
  const auto installed = configuration_.installedHelper();
  const auto resource = configuration_.helperResource();
  if (!directory || !installed || !resource || !fileExists(*installed)) return false;
  const auto lock = system_.lock(*directory, deploymentPatience);
  if (lock.isTaken()) return false;
  const auto resourceVersion = versionOfBundle(*resource);
  const auto installedVersion = versionOfBundle(*installed);
  if (compareVersion(view(resourceVersion), view(installedVersion)) == -1) return false;
  const std::size_t version = std::hash<std::string>{}(resourceVersion.value_or(""));
  if (repairedBy_.exchange(version) == version) return false;
  if (removalObstacleOf(*installed)) return false;
  ItemReplacement replacement;
  InstallationProgress progress(states_, *resource);
  if (replacement.prepare(*resource, *installed, progress.counter())) return false;
  progress.complete();
  const auto openingLock = system_.lock(*installed, openingPatience);
  if (openingLock.isTaken()) return false;
  const auto identifier = configuration_.helperIdentifier();
  if (system_.isRunning(view(identifier), *installed)) {
    repairedBy_ = 0;  // another host has opened it
    return true;
  }
  if (const auto failure = replacement.exchange()) {
    recordFailure(*failure);
    return false;
  }
  record(StepKind::helperRepaired, *installed, versionText(resourceVersion));
  return true;
}

void HelperInstaller::recordMissingResource() const {
  record(StepKind::helperResourceMissing, configuration_.helperName().value_or("") + ".app");
}

void HelperInstaller::logFailedCopy(const FileError& error) {
  recordFailure(error);
  const std::size_t failure = std::hash<std::string>{}(error.path + '\n' + error.message);
  if (loggedFailure_.exchange(failure) == failure) return;
  log(LogLevel::error, LogCategory::deployment, "copy %@ error %@",
      {privateArgument(error.path), publicArgument(error.message)});
}

void HelperInstaller::logFailedRemoval(const std::string& installed, const FileError& error) {
  recordFailure(error);
  log(LogLevel::error, LogCategory::deployment, "remove %@ error %@",
      {privateArgument(installed), privateArgument(describeBelow(installed, error))});
}

String versionOfBundle(const std::string& path) {
  const auto bundle = Bundle::withPath(path);
  return bundle ? bundle->infoString(kCFBundleVersionKey) : std::nullopt;
}

}  // namespace qbdkr
