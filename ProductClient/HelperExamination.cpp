#include "ProductClient/HelperExamination.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "Platform/Events/PeerLookup.h"
#include "Platform/Files/Files.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/Workspace/Program.h"

namespace qbdkr {
namespace {

constexpr std::chrono::milliseconds loaderPatience(900);

// The loader shows a path as it was composed, as with "..".
bool liesIn(const std::string& path, const std::string& directory) {
  std::error_code error;
  const auto place = std::filesystem::weakly_canonical(path, error);
  if (error) return false;
  const auto root = std::filesystem::weakly_canonical(directory, error);
  return !error && place.string().starts_with(root.string() + '/');
}

struct Complaint {
  std::string text;
  std::string remedy;
};

std::string subjectOf(const HelperCopy& copy, std::string_view part) {
  return std::string(copy.prefix).append("-").append(part);
}

void complain(const HelperCopy& copy, std::string_view part, Complaint complaint,
              Findings& findings) {
  if (!copy.remedy.empty()) complaint.remedy = copy.remedy;
  findings.add({copy.severity, subjectOf(copy, part), std::move(complaint.text),
                std::move(complaint.remedy)});
}

// Names the files that CFBundleExecutable could have meant.
std::string programsIn(const std::string& folder) {
  auto names = contentsOfDirectory(folder).value_or(std::vector<std::string>());
  if (names.empty()) return "the folder " + shown(folder) + " is empty or missing";
  std::ranges::sort(names);
  return shown(folder) + " holds " + listOf(names);
}

Complaint missingExecutable(const Bundle& bundle, const String& name) {
  const std::string folder = programFolderOf(bundle.bundlePath());
  const std::string file = appendPathComponent(bundle.bundlePath(), "Contents/Info.plist");
  if (!name || name->empty()) {
    return {"CFBundleExecutable is missing from " + shown(file) + "; " + programsIn(folder) + '.',
            "Add CFBundleExecutable with the name of the program."};
  }
  const std::string path = appendPathComponent(folder, *name);
  const bool isThere = name->find('/') == std::string::npos && fileExists(path);
  if (isThere) {
    return {"CFBundleExecutable is " + inQuotes(*name) + ", and " + shown(path) +
                " is not a regular file.",
            "Put the program there."};
  }
  return {"CFBundleExecutable is " + inQuotes(*name) +
              ", which does not exist: " + programsIn(folder) + '.',
          "Name a file of that folder, or put the program there."};
}

std::optional<Complaint> complaintAbout(const std::string& path, const ProgramReport& report) {
  const std::string program = shown(path);
  switch (report.fault) {
    case ProgramFault::none:
      return std::nullopt;
    case ProgramFault::missing:
      return Complaint{program + " does not exist.", "Put the program there."};
    case ProgramFault::notRegular:
      return Complaint{program + " is not a regular file.", "Put the program there."};
    case ProgramFault::notExecutable:
      return Complaint{program + " may not be executed by this user.",
                       "Run: chmod +x '" + program + "'"};
    case ProgramFault::empty:
      return Complaint{program + " is empty.", "Build the program anew, and copy it there."};
    case ProgramFault::unknownFormat:
      return Complaint{program + " is neither an ELF program nor a script.",
                       "Build the program for this system, or begin the script with \"#!\"."};
    case ProgramFault::otherProcessor:
      return Complaint{program + " is a program for another processor, " + report.detail + '.',
                       "Build the program for this machine."};
    case ProgramFault::missingLoader:
      return Complaint{program + " needs the loader " + shown(report.detail) +
                           ", which this system does not have.",
                       "Build the program for the C library of this system."};
    case ProgramFault::missingInterpreter:
      return Complaint{program + " is a script for the interpreter " + inQuotes(report.detail) +
                           ", which does not exist or may not be executed.",
                       report.detail.ends_with('\r')
                           ? "Give the script the line ends of this system."
                           : "Install the interpreter, or correct the first line of the script."};
    case ProgramFault::interpreterNotFound:
      return Complaint{program + " is a script for " + inQuotes(report.detail) +
                           ", which PATH does not lead to.",
                       "Install the interpreter, or correct the first line of the script."};
  }
  return std::nullopt;
}

// An installed copy leaves its host: a library is found there only if the copy takes it along.
void warnOfLibrariesLeftBehind(const HelperCopy& copy, const std::vector<std::string>& libraries,
                               Findings& findings) {
  if (copy.host.empty()) return;
  std::vector<std::string> left;
  for (const std::string& library : libraries) {
    if (liesIn(library, copy.host) && !liesIn(library, copy.path)) left.push_back(library);
  }
  if (left.empty()) return;
  findings.warning(subjectOf(copy, "libraries"),
                   "The helper agent finds " + listOf(left) +
                       " in the host's bundle, which an installed copy leaves.",
                   "Put these libraries into the helper agent's own bundle.");
}

bool examineLibraries(const std::string& path, const HelperCopy& copy, Findings& findings) {
  const auto libraries = librariesOfProgram(path, loaderPatience);
  if (!libraries.isKnown) {
    findings.ok(subjectOf(copy, "libraries"),
                "It needs no shared libraries, or they cannot be listed.");
    return true;
  }
  if (!libraries.missing.empty()) {
    complain(copy, "libraries",
             {shown(path) + " does not find " + listOf(libraries.missing) + '.',
              "Put the missing libraries into the bundle's Contents/Frameworks, and give the"
              " program the rpath $ORIGIN/../Frameworks."},
             findings);
    return false;
  }
  warnOfLibrariesLeftBehind(copy, libraries.found, findings);
  findings.ok(subjectOf(copy, "libraries"), "Its shared libraries are found.");
  return true;
}

bool examineIdentity(const Bundle& bundle, const HelperCopy& copy, const String& identifier,
                     Findings& findings) {
  const auto own = bundle.infoString(kCFBundleIdentifierKey);
  const std::string file = appendPathComponent(copy.path, "Contents/Info.plist");
  if (!own || own->empty()) {
    complain(
        copy, "identity",
        {"The helper agent has no CFBundleIdentifier in " + shown(file) +
             ": it does not come to the bus.",
         "Add CFBundleIdentifier" +
             (identifier ? " with " + inQuotes(*identifier) : std::string()) + " to that file."},
        findings);
    return false;
  }
  // Without the host's word only the form can be judged.
  if (identifier ? *own != *identifier : !isReachableIdentifier(*own)) {
    complain(copy, "identity",
             {"The helper agent's CFBundleIdentifier is " + inQuotes(*own) +
                  (identifier ? ", but the host expects " + inQuotes(*identifier)
                              : ", which cannot be a name on the bus") +
                  '.',
              "Make \"Helper Bundle indentifiter\" of the host and CFBundleIdentifier of the helper"
              " agent the same."},
             findings);
    return false;
  }
  findings.ok(subjectOf(copy, "identity"), "It identifies itself as " + shown(*own) + '.');
  return true;
}

}  // namespace

bool examineExecutable(const Bundle& bundle, const HelperCopy& copy, Findings& findings) {
  const auto name = bundle.infoString(kCFBundleExecutableKey);
  const auto path = bundle.executablePath();
  if (!path) {
    complain(copy, "executable", missingExecutable(bundle, name), findings);
    return false;
  }
  const auto report = reportOnProgram(*path);
  if (auto complaint = complaintAbout(*path, report)) {
    complain(copy, "executable", std::move(*complaint), findings);
    return false;
  }
  if (!report.interpreter.empty()) {
    findings.ok(subjectOf(copy, "executable"),
                shown(*path) + " is a script for " + shown(report.interpreter) + '.');
    return true;
  }
  findings.ok(subjectOf(copy, "executable"), shown(*path) + " may be executed.");
  return examineLibraries(*path, copy, findings);
}

bool examineHelperCopy(const HelperCopy& copy, const String& identifier, Findings& findings) {
  const auto bundle = Bundle::withPath(copy.path);
  const std::string file = appendPathComponent(copy.path, "Contents/Info.plist");
  if (!bundle) {
    complain(copy, "bundle",
             {shown(copy.path) + " is not a directory.", "Put the helper agent's bundle there."},
             findings);
    return false;
  }
  findings.ok(subjectOf(copy, "bundle"), shown(copy.path) + " is there.");
  if (const auto fault = faultOfDictionaryFile(file)) {
    complain(copy, "information",
             {shown(file) + " is not a property list with a dictionary: " + shown(*fault) + '.',
              "Correct that file."},
             findings);
    return false;
  }
  findings.ok(subjectOf(copy, "information"), "Its Info.plist is well formed.");
  const bool isKnown = examineIdentity(*bundle, copy, identifier, findings);
  return examineExecutable(*bundle, copy, findings) && isKnown;
}

}  // namespace qbdkr
