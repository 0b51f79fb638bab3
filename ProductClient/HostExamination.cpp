#include "ProductClient/HostExamination.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include <ClientComm/Bundle.h>

#include "ClientComm/HostConfiguration.h"
#include "Platform/Files/Files.h"
#include "Platform/Files/TreeSurvey.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/Workspace/Program.h"
#include "ProductClient/Findings.h"
#include "ProductClient/HelperExamination.h"
#include "ProductClient/InstallationExamination.h"
#include "ProductClient/KeyExamination.h"
#include "ProductClient/PresenceExamination.h"

namespace qbdkr {
namespace {

namespace fs = std::filesystem;

std::string absolutePath(const std::string& path) {
  std::error_code error;
  std::string absolute = fs::absolute(path, error).lexically_normal();
  if (error) return path;
  while (absolute.size() > 1 && absolute.ends_with('/')) absolute.pop_back();
  return absolute;
}

// Returns the bundle around a path, as around the executable in it.
std::optional<std::string> bundleAround(std::string path) {
  for (auto slash = path.rfind('/'); slash != std::string::npos && slash > 0;
       slash = path.rfind('/')) {
    path.resize(slash);
    if (fileExists(appendPathComponent(path, "Contents/Info.plist"))) return path;
  }
  return std::nullopt;
}

class HostExaminer {
 public:
  explicit HostExaminer(std::string path) : path_(std::move(path)) {}

  std::vector<Finding> examine() {
    const auto host = openHost();
    if (!host) return findings_.take();
    const HostConfiguration configuration(*host);
    examineKeys(configuration, file_, findings_);
    examineHostExecutable(*host);
    const auto resource = examineResource(configuration);
    examineInstallation(configuration, resource, findings_);
    examinePresence(configuration, findings_);
    return findings_.take();
  }

 private:
  std::optional<Bundle> openHost() {
    const std::string file = appendPathComponent(path_, "Contents/Info.plist");
    auto host = Bundle::withPath(path_);
    if (!host || !fileExists(file)) {
      tellNoBundle(file);
      return std::nullopt;
    }
    if (const auto fault = faultOfDictionaryFile(file)) {
      findings_.error("host-information",
                      {"{} is not a property list with a dictionary: {}.", {file, *fault}},
                      "Correct that file.");
      return std::nullopt;
    }
    file_ = readDictionaryFile(file).value_or(PropertyList::Dictionary());
    findings_.ok("host-bundle", {"{} is a bundle.", {path_}});
    findings_.ok("host-information", "Its Info.plist is well formed.");
    return host;
  }

  void tellNoBundle(const std::string& file) {
    const auto around = bundleAround(path_);
    findings_.error(
        "host-bundle",
        {fileExists(path_) ? "{} is not a bundle: {} does not exist." : "{} does not exist.",
         {path_, file}},
        {around ? "Examine the bundle around it, {}."
                : "Run the host from NAME.app/Contents, with an Info.plist there.",
         {around.value_or("")}});
  }

  // Without CFBundleExecutable a host works if it is started by the path of its program.
  void examineHostExecutable(const Bundle& host) {
    HelperCopy copy{path_, "host"};
    if (!host.executablePath()) copy.severity = Finding::Severity::warning;
    examineExecutable(host, copy, findings_);
  }

  // Returns the helper agent among the resources if it can be installed and started.
  String examineResource(const HostConfiguration& configuration) {
    const auto name = configuration.helperName();
    if (!name || name->empty() ||
        name->find_first_of(std::string_view("/\0", 2)) != std::string::npos) {
      return std::nullopt;
    }
    const auto resource = configuration.helperResource();
    if (!resource) {
      tellMissingResource(configuration, *name);
      return std::nullopt;
    }
    // A copy that is kept works without the resource. One that is replaced stays in use if the
    // resource cannot be copied.
    const NextStart next = nextStartWith(resource, configuration.installedHelper());
    HelperCopy copy{*resource, "helper"};
    copy.host = path_;
    if (next == NextStart::keepsSame || next == NextStart::keepsNewer) {
      copy.severity = Finding::Severity::warning;
    }
    const bool isUsable = examineHelperCopy(copy, usableIdentifier(configuration), findings_);
    examineIdentityOfScript(configuration, *resource);
    const bool isNeeded = next == NextStart::installs || next == NextStart::unknown;
    return examineContents(*resource, isNeeded) && isUsable ? resource : std::nullopt;
  }

  // The process of a script is its interpreter. That counts as the installed copy if it lies there.
  void examineIdentityOfScript(const HostConfiguration& configuration,
                               const std::string& resource) {
    if (!configuration.requiresInstalledHelper()) return;
    const auto helper = Bundle::withPath(resource);
    const auto program = helper ? helper->executablePath() : std::nullopt;
    const auto report = program ? reportOnProgram(*program) : ProgramReport();
    if (report.interpreter.empty() || report.fault != ProgramFault::none) return;
    if (hasInterpreterOfItsOwn(resource)) return;
    findings_.error("helper-executable",
                    {"{} is a script for {}, and \"Helper must be installed copy\" is set: requests"
                     " return -1743, as the process of a script is its interpreter.",
                     {*program, report.interpreter}},
                    "Remove the key \"Helper must be installed copy\", or have the script run an"
                    " interpreter beside it in the bundle.");
  }

  // Tells whether a bundle has a program that may be the interpreter of its script. A link leads to
  // a program elsewhere, which is the one that runs.
  static bool hasInterpreterOfItsOwn(const std::string& bundle) {
    const std::string folder = programFolderOf(bundle);
    const auto names = contentsOfDirectory(folder).value_or(std::vector<std::string>());
    return std::ranges::any_of(names, [&folder](const std::string& name) {
      const std::string path = appendPathComponent(folder, name);
      std::error_code error;
      if (!fs::is_regular_file(fs::symlink_status(path, error))) return false;
      const auto report = reportOnProgram(path);
      return report.fault == ProgramFault::none && report.interpreter.empty();
    });
  }

  static String usableIdentifier(const HostConfiguration& configuration) {
    auto identifier = configuration.helperIdentifier();
    if (identifier && identifier->empty()) identifier.reset();
    return identifier;
  }

  // A host may rely on a helper agent that another one has installed.
  void tellMissingResource(const HostConfiguration& configuration, const std::string& name) {
    const std::string folder = appendPathComponent(path_, "Contents/Resources");
    const std::string wanted = appendPathComponent(folder, name) + ".app";
    auto names = contentsOfDirectory(folder).value_or(std::vector<std::string>());
    std::erase_if(names, [](const std::string& entry) { return pathExtension(entry) != "app"; });
    std::ranges::sort(names);
    const auto installed = configuration.installedHelper();
    const bool isInstalled = installed && installed->starts_with('/') && fileExists(*installed);
    findings_.add(
        isInstalled ? Finding::Severity::warning : Finding::Severity::error, "helper-bundle",
        {"The helper agent {} does not exist; {+}{+} there.{+}",
         {wanted, names.empty() ? "no bundle" : listOf(names), names.size() > 1 ? " are" : " is",
          isInstalled ? " An installed copy is used." : ""}},
        name.ends_with(".app")
            ? "Leave out \".app\" in the name."
            : "Put the helper agent's bundle there, or correct \"Helepr App name\".");
  }

  bool examineContents(const std::string& resource, bool isNeeded) {
    constexpr std::string_view subject = "helper-contents";
    const auto survey = surveyOfTree(resource);
    if (survey.obstacle) {
      findings_.add(
          isNeeded ? Finding::Severity::error : Finding::Severity::warning, subject,
          {"{} cannot be installed: {+}.", {survey.obstacle->path, survey.obstacle->message}},
          "Remove it from the helper agent's bundle, or make it readable.");
      return false;
    }
    const std::string count = std::to_string(survey.entries);
    if (!survey.isComplete) {
      findings_.note(
          subject,
          {"The helper agent has more than {} files, and not all were examined.", {count}});
      return true;
    }
    findings_.ok(subject, {"Its {} files can be copied.", {count}});
    return true;
  }

  const std::string path_;
  PropertyList::Dictionary file_;
  Findings findings_;
};

}  // namespace

std::vector<Finding> examineHost(const std::string& bundlePath) {
  if (bundlePath.empty() || bundlePath.find('\0') != std::string::npos) {
    Findings findings;
    findings.error("host-bundle", {"The path \"{}\" cannot be that of a bundle.", {bundlePath}},
                   "Give the path of the host's bundle.");
    return findings.take();
  }
  return HostExaminer(absolutePath(bundlePath)).examine();
}

}  // namespace qbdkr
