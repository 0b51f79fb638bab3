#include "ProductClient/PresenceExamination.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <ClientComm/Bundle.h>
#include <ClientComm/UserDefaults.h>

#include "Platform/Events/PeerLookup.h"
#include "Platform/Processes/RunningApplications.h"
#include "Platform/Workspace/Program.h"

namespace qbdkr {
namespace {

constexpr std::chrono::milliseconds peerPatience(900);
constexpr std::string_view ownerSubject = "name-owner";
constexpr std::string_view processSubject = "processes";
constexpr std::string_view switchKey = "QBHPServerClosed";

std::string commandToEnd(const std::vector<pid_t>& processes) {
  std::string command = "End " + listOf(processes) + ", as with: kill";
  for (const pid_t process : processes) command += ' ' + std::to_string(process);
  return command;
}

bool isSamePlace(const std::string& path, const std::string& other) {
  std::error_code error;
  return path == other || std::filesystem::equivalent(path, other, error);
}

class PresenceExaminer {
 public:
  PresenceExaminer(const HostConfiguration& configuration, Findings& findings)
      : configuration_(configuration),
        findings_(findings),
        identifier_(configuration.helperIdentifier().value_or("")),
        installed_(configuration.installedHelper().value_or("")) {}

  void examine() {
    examineSwitch();
    const auto lookup = lookUpPeer(identifier_, peerPatience);
    if (!examineWay(lookup) || !isReachableIdentifier(identifier_)) return;
    const auto running = runningApplications().value_or(std::vector<RunningApplication>());
    auto processes = helperProcesses(running);
    if (!lookup.process) return examineAbsence(processes);
    if (lookup.isHidden) {
      return findings_.ok(ownerSubject,
                          "The helper agent can be reached; a proxy of the bus hides its process.");
    }
    examineOwner(*lookup.process, running);
    std::erase(processes, *lookup.process);
    if (processes.empty()) return;
    findings_.warning(processSubject,
                      {"Beside its owner, {+} also {} the helper agent.",
                       {listOf(processes), processes.size() == 1 ? "runs" : "run"}},
                      {"{+}", {commandToEnd(processes)}});
  }

 private:
  // Returns the processes that count as the helper agent: by its identifier, or by its path.
  [[nodiscard]] std::vector<pid_t> helperProcesses(
      const std::vector<RunningApplication>& running) const {
    std::vector<pid_t> processes;
    for (const RunningApplication& application : running) {
      if (application.info->text(kCFBundleIdentifierKey) == identifier_ ||
          isSamePlace(application.bundlePath, installed_)) {
        processes.push_back(application.processID);
      }
    }
    return processes;
  }

  void examineSwitch() {
    const auto domain = UserDefaults::persistentDomain(identifier_);
    const PropertyList* closed = domain ? domain->find(switchKey) : nullptr;
    if (closed == nullptr || !boolValue(*closed)) return;
    findings_.warning("server-switch",
                      {"{} is set in the settings of {}: a helper agent that has ended is not"
                       " started again.",
                       {switchKey, identifier_}},
                      "Let the helper agent remove it, or set it to false there.");
  }

  bool examineWay(const PeerLookup& lookup) {
    constexpr std::string_view subject = "session-bus";
    const std::string_view bus = lookup.way.empty() ? "The session bus" : "The bus ";
    if (!lookup.isTried) {
      findings_.note(subject,
                     {"{+}{} is not a local socket, and was not asked.", {bus, lookup.way}});
      return false;
    }
    if (!lookup.obstacle.empty()) {
      findings_.error(subject,
                      {"{+}{} cannot be reached: {+}.", {bus, lookup.way, lookup.obstacle}},
                      "Start the host in a session that has a bus, or under dbus-run-session.");
      return false;
    }
    findings_.ok(subject, {"{+}{} answers.", {bus, lookup.way}});
    return true;
  }

  void examineAbsence(const std::vector<pid_t>& processes) {
    if (processes.empty()) {
      return findings_.note(ownerSubject, "The helper agent does not run; a host starts it.");
    }
    findings_.error(processSubject,
                    {"The helper agent is run by {+} without the name {} on this bus: it counts as"
                     " running, and cannot be reached.",
                     {listOf(processes), identifier_}},
                    {"{+} (it may be on the bus of another session).", {commandToEnd(processes)}});
  }

  void examineOwner(pid_t owner, const std::vector<RunningApplication>& running) {
    const std::string process = "process " + std::to_string(owner);
    const auto application = std::ranges::find(running, owner, &RunningApplication::processID);
    const bool isApplication = application != running.end();
    const std::string identifier =
        isApplication ? application->info->text(kCFBundleIdentifierKey).value_or("") : "";
    if (isApplication && identifier == identifier_ &&
        isSamePlace(application->bundlePath, installed_)) {
      return findings_.ok(ownerSubject, {"The helper agent runs as {}.", {process}});
    }
    if (!isApplication && isInstalledScript()) {
      return findings_.ok(ownerSubject,
                          {"The helper agent, a script, can be reached at {}.", {process}});
    }
    const std::string program =
        isApplication
            ? Sentence("{} of the identifier \"{}\"", {application->bundlePath, identifier}).text()
            : "no application that can be seen";
    const bool isRefused = configuration_.requiresInstalledHelper();
    findings_.add(
        isRefused ? Finding::Severity::error : Finding::Severity::warning, ownerSubject,
        {"The name {} belongs to {}, which runs {+}, and not the installed copy {}.{+}",
         {identifier_, process, program, installed_, isRefused ? " Requests return -1743." : ""}},
        {"{+}", {commandToEnd({owner})}});
  }

  // Its process is the interpreter, which belongs to no bundle.
  [[nodiscard]] bool isInstalledScript() const {
    if (configuration_.requiresInstalledHelper()) return false;
    const auto bundle = Bundle::withPath(installed_);
    const auto program = bundle ? bundle->executablePath() : std::nullopt;
    return program && !reportOnProgram(*program).interpreter.empty();
  }

  const HostConfiguration& configuration_;
  Findings& findings_;
  const std::string identifier_;
  const std::string installed_;
};

}  // namespace

void examinePresence(const HostConfiguration& configuration, Findings& findings) {
  PresenceExaminer(configuration, findings).examine();
}

}  // namespace qbdkr
