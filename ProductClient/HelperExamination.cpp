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

std::string subjectOf(const HelperCopy& copy, std::string_view part) {
  return std::string(copy.prefix).append("-").append(part);
}

void complain(const HelperCopy& copy, std::string_view part, const Sentence& text,
              const Sentence& remedy, Findings& findings) {
  findings.add({copy.severity, subjectOf(copy, part), text.text(),
                copy.remedy.empty() ? remedy.text() : copy.remedy});
}

// Names the files that CFBundleExecutable could have meant.
std::string programsIn(const std::string& folder) {
  auto names = contentsOfDirectory(folder).value_or(std::vector<std::string>());
  if (names.empty()) return Sentence("the folder {} is empty or missing", {folder}).text();
  std::ranges::sort(names);
  return Sentence("{} holds {+}", {folder, listOf(names)}).text();
}

void complainOfMissingExecutable(const Bundle& bundle, const String& name, const HelperCopy& copy,
                                 Findings& findings) {
  constexpr std::string_view part = "executable";
  const std::string folder = programFolderOf(bundle.bundlePath());
  const std::string file = appendPathComponent(bundle.bundlePath(), "Contents/Info.plist");
  if (!name || name->empty()) {
    return complain(copy, part,
                    {"CFBundleExecutable is missing from {}; {+}.", {file, programsIn(folder)}},
                    "Add CFBundleExecutable with the name of the program.", findings);
  }
  const std::string path = appendPathComponent(folder, *name);
  const bool isThere = name->find('/') == std::string::npos && fileExists(path);
  if (isThere) {
    return complain(copy, part,
                    {"CFBundleExecutable is \"{}\", and {} is not a regular file.", {*name, path}},
                    "Put the program there.", findings);
  }
  complain(
      copy, part,
      {"CFBundleExecutable is \"{}\", which does not exist: {+}.", {*name, programsIn(folder)}},
      "Name a file of that folder, or put the program there.", findings);
}

// The forms of two sentences over the path of a program, and the detail of its fault.
struct Complaint {
  const char* text;
  const char* remedy;
};

std::optional<Complaint> complaintAbout(const ProgramReport& report) {
  constexpr const char* anotherInterpreter =
      "Install the interpreter, or correct the first line of the script.";
  switch (report.fault) {
    case ProgramFault::none:
      return std::nullopt;
    case ProgramFault::missing:
      return Complaint{"{} does not exist.", "Put the program there."};
    case ProgramFault::notRegular:
      return Complaint{"{} is not a regular file.", "Put the program there."};
    case ProgramFault::notExecutable:
      return Complaint{"{} may not be executed by this user.", "Run: chmod +x '{}'"};
    case ProgramFault::empty:
      return Complaint{"{} is empty.", "Build the program anew, and copy it there."};
    case ProgramFault::unknownFormat:
      return Complaint{"{} is neither an ELF program nor a script.",
                       "Build the program for this system, or begin the script with \"#!\"."};
    case ProgramFault::otherProcessor:
      return Complaint{"{} is a program for another processor, {}.",
                       "Build the program for this machine."};
    case ProgramFault::missingLoader:
      return Complaint{"{} needs the loader {}, which this system does not have.",
                       "Build the program for the C library of this system."};
    case ProgramFault::missingInterpreter:
      return Complaint{
          "{} is a script for the interpreter \"{}\", which does not exist or may not"
          " be executed.",
          report.detail.ends_with('\r') ? "Give the script the line ends of this system."
                                        : anotherInterpreter};
    case ProgramFault::interpreterNotFound:
      return Complaint{"{} is a script for \"{}\", which PATH does not lead to.",
                       anotherInterpreter};
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
                   {"The helper agent finds {+} in the host's bundle, which an installed copy"
                    " leaves.",
                    {listOf(left)}},
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
    complain(copy, "libraries", {"{} does not find {+}.", {path, listOf(libraries.missing)}},
             "Put the missing libraries into the bundle's Contents/Frameworks, and give the"
             " program the rpath $ORIGIN/../Frameworks.",
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
        {"The helper agent has no CFBundleIdentifier in {}: it does not come to the bus.", {file}},
        {identifier ? "Add CFBundleIdentifier with \"{}\" to that file."
                    : "Add CFBundleIdentifier to that file.",
         {identifier.value_or("")}},
        findings);
    return false;
  }
  // Without the host's word only the form can be judged.
  if (identifier ? *own != *identifier : !isReachableIdentifier(*own)) {
    complain(
        copy, "identity",
        {identifier ? "The helper agent's CFBundleIdentifier is \"{}\", but the host expects"
                      " \"{}\"."
                    : "The helper agent's CFBundleIdentifier is \"{}\", which cannot be a name on"
                      " the bus.",
         {*own, identifier.value_or("")}},
        "Make \"Helper Bundle indentifiter\" of the host and CFBundleIdentifier of the helper"
        " agent the same.",
        findings);
    return false;
  }
  findings.ok(subjectOf(copy, "identity"), {"It identifies itself as {}.", {*own}});
  return true;
}

}  // namespace

bool examineExecutable(const Bundle& bundle, const HelperCopy& copy, Findings& findings) {
  const auto name = bundle.infoString(kCFBundleExecutableKey);
  const auto path = bundle.executablePath();
  if (!path) {
    complainOfMissingExecutable(bundle, name, copy, findings);
    return false;
  }
  const auto report = reportOnProgram(*path);
  if (const auto complaint = complaintAbout(report)) {
    complain(copy, "executable", {complaint->text, {*path, report.detail}},
             {complaint->remedy, {*path}}, findings);
    return false;
  }
  if (!report.interpreter.empty()) {
    findings.ok(subjectOf(copy, "executable"),
                {"{} is a script for {}.", {*path, report.interpreter}});
    return true;
  }
  findings.ok(subjectOf(copy, "executable"), {"{} may be executed.", {*path}});
  return examineLibraries(*path, copy, findings);
}

bool examineHelperCopy(const HelperCopy& copy, const String& identifier, Findings& findings) {
  const auto bundle = Bundle::withPath(copy.path);
  const std::string file = appendPathComponent(copy.path, "Contents/Info.plist");
  if (!bundle) {
    complain(copy, "bundle", {"{} is not a directory.", {copy.path}},
             "Put the helper agent's bundle there.", findings);
    return false;
  }
  findings.ok(subjectOf(copy, "bundle"), {"{} is there.", {copy.path}});
  if (const auto fault = faultOfDictionaryFile(file)) {
    complain(copy, "information",
             {"{} is not a property list with a dictionary: {}.", {file, *fault}},
             "Correct that file.", findings);
    return false;
  }
  findings.ok(subjectOf(copy, "information"), "Its Info.plist is well formed.");
  const bool isKnown = examineIdentity(*bundle, copy, identifier, findings);
  return examineExecutable(*bundle, copy, findings) && isKnown;
}

}  // namespace qbdkr
