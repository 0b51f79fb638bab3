#include "ProductClient/InstallationExamination.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include <ClientComm/Bundle.h>
#include <ClientComm/QBHPVersion.h>

#include "Platform/Files/FileSystem.h"
#include "Platform/Files/FileTree.h"
#include "Platform/Files/Files.h"
#include "Platform/Files/TreeSurvey.h"
#include "ProductClient/HelperExamination.h"
#include "ProductClient/HelperInstaller.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view directorySubject = "install-directory";

// Comparing a version splits it into its parts.
constexpr std::size_t longestVersion = 1000;
// Two executables of this size are compared in a fraction of a second.
constexpr std::uintmax_t mostCompared = std::uintmax_t{64} << 20;

std::string asMegabytes(std::uint64_t bytes) {
  const std::uint64_t tenths = bytes / 100'000 + (bytes % 100'000 == 0 ? 0 : 1);
  return std::to_string(tenths / 10) + '.' + std::to_string(tenths % 10) + " MB";
}

// Returns the nearest directory at or above a path that exists, or a file in its place.
std::string nearestExisting(std::string path) {
  struct stat status {};
  while (path.size() > 1 && ::lstat(path.c_str(), &status) != 0) {
    path.resize(std::max<std::size_t>(path.find_last_of('/'), 1));
  }
  return path;
}

bool haveSameBytes(const std::string& one, const std::string& other) {
  std::error_code error;
  const auto size = fs::file_size(one, error);
  if (error || size != fs::file_size(other, error) || error) return false;
  if (size > mostCompared) return true;  // in doubt no word is said
  std::ifstream first(one, std::ios::binary);
  std::ifstream second(other, std::ios::binary);
  std::array<char, 65536> a{};
  std::array<char, 65536> b{};
  while (first && second) {
    first.read(a.data(), a.size());
    second.read(b.data(), b.size());
    if (first.gcount() != second.gcount()) return false;
    const auto count = static_cast<std::size_t>(first.gcount());
    if (std::string_view(a.data(), count) != std::string_view(b.data(), count)) return false;
  }
  return true;
}

class InstallationExaminer {
 public:
  InstallationExaminer(const HostConfiguration& configuration, const String& resource,
                       Findings& findings)
      : configuration_(configuration), resource_(resource), findings_(findings) {}

  void examine() {
    const auto directory = configuration_.installDirectory();
    const auto installed = configuration_.installedHelper();
    if (!directory) return;
    const bool isUsable = examineDirectory(*directory);
    if (!installed || !fs::path(*directory).is_absolute()) return;
    const NextStart next = nextStartWith(resource_, installed);
    tellNextStart(*installed, next);
    if (isUsable) examineRoom(*directory, *installed, next);
    if (isUsable) examineLeftovers(*directory, *installed);
    if (fileExists(*installed)) {
      examineInstalled(*installed, next);
    } else if (!resource_) {
      findings_.note(
          "installed-bundle",
          {"No helper agent is installed at {}, and the host has none to install.", {*installed}});
    }
  }

 private:
  bool examineDirectory(const std::string& directory) {
    if (!directory.starts_with('/')) {
      std::error_code error;
      const fs::path here = fs::current_path(error);
      findings_.error(directorySubject,
                      {"The install directory \"{}\" is relative: it depends on where the host is"
                       " started, here {}, and nothing is started from there.",
                       {directory, (here / directory).lexically_normal().native()}},
                      "Give an absolute path, or one that begins with \"~/\".");
      return false;
    }
    const std::string existing = nearestExisting(directory);
    const bool isThere = existing == directory || fileExists(directory);
    const std::string& place = isThere ? directory : existing;
    if (!fs::is_directory(fs::path(place), ignored_)) {
      findings_.error(
          directorySubject,
          {"{} is not a directory, so nothing can be installed into {}.", {place, directory}},
          "Remove that file, or give another install directory.");
      return false;
    }
    return examineFileSystem(directory, place) && examineRights(directory, place, isThere);
  }

  bool examineFileSystem(const std::string& directory, const std::string& place) {
    const auto fileSystem = fileSystemOf(place);
    if (!fileSystem) return true;
    const std::string name = fileSystem->type.empty() ? "file system" : fileSystem->type;
    constexpr const char* remedy = "Give an install directory on a disk, below the home.";
    if (!fileSystem->holdsFiles || !fileSystem->isWritable) {
      findings_.error(directorySubject,
                      {fileSystem->holdsFiles ? "{} lies on a read-only {+}."
                                              : "{} lies on {+}, which holds no files of users.",
                       {directory, name}},
                      remedy);
      return false;
    }
    if (!fileSystem->runsPrograms) {
      findings_.error("file-system",
                      {"{} lies on a {+} that is mounted \"noexec\": no program is executed from"
                       " there.",
                       {place, name}},
                      remedy);
      return false;
    }
    if (!fileSystem->type.empty()) findings_.ok("file-system", {"{} is on {+}.", {place, name}});
    return true;
  }

  bool examineRights(const std::string& directory, const std::string& place, bool isThere) {
    if (::faccessat(AT_FDCWD, place.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
      const std::string reason = std::generic_category().message(errno);
      findings_.error(
          directorySubject,
          {isThere ? "{} cannot be written by this user ({+})."
                   : "{} cannot be written by this user ({+}), so {} cannot be made.",
           {place, reason, directory}},
          "Give this user the right to write there, or give another install directory.");
      return false;
    }
    if (!isThere && fs::path(directory).filename().string().size() > longestName) {
      findings_.error(directorySubject, {"The name of {} is too long.", {directory}},
                      "Give a shorter install directory.");
      return false;
    }
    findings_.ok(
        directorySubject,
        {isThere ? "{} can be written." : "{} does not exist, and can be made.", {directory}});
    return true;
  }

  void tellNextStart(const std::string& installed, NextStart next) {
    constexpr std::string_view subject = "version";
    if (!resource_) return;
    const std::string version = describedVersion(*resource_);
    switch (next) {
      case NextStart::installs:
        return findings_.ok(subject, {"The next start installs the helper agent, {+}.", {version}});
      case NextStart::upgrades:
        return findings_.ok(subject, {"The next start replaces the installed copy, {+}, by {+}.",
                                      {describedVersion(installed), version}});
      case NextStart::keepsSame:
      case NextStart::keepsNewer:
        return tellKept(installed, version, describedVersion(installed),
                        next == NextStart::keepsSame);
      case NextStart::unknown:
        return findings_.warning(subject, "The CFBundleVersion of the helper agent is too long.",
                                 "Give it a version, as \"1.2\".");
    }
  }

  static std::string describedVersion(const std::string& bundle) {
    const auto version = versionOfBundle(bundle);
    return version ? Sentence("version \"{}\"", {*version}).text() : "no version";
  }

  void tellKept(const std::string& installed, const std::string& version,
                const std::string& present, bool isSame) {
    constexpr std::string_view subject = "version";
    const auto one = Bundle::withPath(*resource_);
    const auto other = Bundle::withPath(installed);
    const auto program = one ? one->executablePath() : std::nullopt;
    const auto installedProgram = other ? other->executablePath() : std::nullopt;
    if (isSame && program && installedProgram && !haveSameBytes(*program, *installedProgram)) {
      return findings_.warning(
          subject,
          {"The installed copy has the same version as the resource, {+}, and another program: the"
           " next start keeps it.",
           {version}},
          {"Raise CFBundleVersion of the helper agent, or remove {}.", {installed}});
    }
    findings_.add(isSame ? Finding::Severity::ok : Finding::Severity::note, subject,
                  {"The next start keeps the installed copy, {+}: the resource, {+}, is not newer"
                   " (logged as \"helper in conetent's version is lower\").",
                   {present, version}},
                  "");
  }

  void examineRoom(const std::string& directory, const std::string& installed, NextStart next) {
    if (next != NextStart::installs && next != NextStart::upgrades) return;
    const auto fileSystem = fileSystemOf(nearestExisting(directory));
    const auto size = surveyOfTree(*resource_).bytes;
    if (!fileSystem || fileSystem->freeSize >= size) return;
    const bool isFirst = next == NextStart::installs;
    findings_.add(
        isFirst ? Finding::Severity::error : Finding::Severity::warning, "free-space",
        {isFirst ? "The helper agent takes {}, and only {} are free for {}."
                 : "The helper agent takes {}, and only {} are free for {}. The copy at {}"
                   " stays in use.",
         {asMegabytes(size), asMegabytes(fileSystem->freeSize), directory, installed}},
        "Make room there.");
  }

  void examineLeftovers(const std::string& directory, const std::string& installed) {
    const auto names = unfinishedWorkOn(installed);
    if (names.empty()) return;
    findings_.note("unfinished-work",
                   {"{} holds {+}, of a deployment that runs or was interrupted; the next one"
                    " clears it.",
                    {directory, listOf(names)}});
  }

  // A copy that the next start replaces does no harm.
  void examineInstalled(const std::string& installed, NextStart next) {
    HelperCopy copy{installed, "installed"};
    if (next == NextStart::upgrades) {
      copy.severity = Finding::Severity::note;
      copy.remedy = "Start the host: it replaces this copy.";
    } else if (next != NextStart::unknown) {
      copy.remedy = Sentence("Remove {}: the next start installs it anew.", {installed}).text();
    }
    Findings found;
    examineHelperCopy(copy, configuration_.helperIdentifier(), found);
    for (Finding& finding : found.take()) {
      const bool isRepaired =
          next == NextStart::keepsSame && configuration_.supervisesHelper() &&
          (finding.subject == "installed-executable" || finding.subject == "installed-libraries");
      if (isRepaired && finding.severity == Finding::Severity::error) {
        finding.severity = Finding::Severity::warning;
        finding.remedy = "Start the host: it is supervised, and replaces this copy.";
      }
      findings_.add(std::move(finding));
    }
  }

  static constexpr std::size_t longestName = 255;

  const HostConfiguration& configuration_;
  const String& resource_;
  Findings& findings_;
  std::error_code ignored_;
};

}  // namespace

NextStart nextStartWith(const String& resource, const String& installed) {
  if (!resource || !installed || !installed->starts_with('/')) return NextStart::unknown;
  if (!fileExists(*installed)) return NextStart::installs;
  const auto version = versionOfBundle(*resource);
  const auto present = versionOfBundle(*installed);
  if (version.value_or("").size() > longestVersion ||
      present.value_or("").size() > longestVersion) {
    return NextStart::unknown;
  }
  const int order = compareVersion(view(version), view(present));
  if (order == 1) return NextStart::upgrades;
  return order == 0 ? NextStart::keepsSame : NextStart::keepsNewer;
}

void examineInstallation(const HostConfiguration& configuration, const String& resource,
                         Findings& findings) {
  InstallationExaminer(configuration, resource, findings).examine();
}

}  // namespace qbdkr
