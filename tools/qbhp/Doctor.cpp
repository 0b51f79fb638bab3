// qbhp doctor: finds out why a host has no helper agent.

#include <sys/types.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <ClientComm/QBHPProcessList.h>

#include "ClientComm/InfoKeys.h"
#include "Platform/Events/LiveDiagnosis.h"
#include "Platform/Events/PeerLookup.h"
#include "ProductClient/HostExamination.h"
#include "tools/qbhp/Command.h"
#include "tools/qbhp/MissingBus.h"

namespace qbdkr::tool {
namespace {

using Severity = Finding::Severity;

struct Word {
  const char* word;
  Style style;
};

Word wordOf(Severity severity) {
  switch (severity) {
    case Severity::ok:
      return {"ok", Style::good};
    case Severity::note:
      return {"note", Style::plain};
    case Severity::warning:
      return {"warning", Style::heading};
    case Severity::error:
      break;
  }
  return {"error", Style::bad};
}

void addWrapped(Output& output, std::string_view before, Style style, std::string_view text) {
  constexpr std::size_t indent = 9;
  const std::string padding(indent - std::min(before.size(), indent), ' ');
  output.wrapped(output.styled(style, before) + padding, indent, text);
}

void addRemedy(Output& output, const Finding& finding) {
  if (finding.remedy.empty()) return;
  addWrapped(output, "Remedy:", Style::plain, escaped(finding.remedy));
}

void addFinding(Output& output, const Finding& finding) {
  const auto [word, style] = wordOf(finding.severity);
  const bool isPlain = finding.severity == Severity::ok;
  addWrapped(output, word, style,
             escaped(finding.text) + (isPlain ? "" : " (" + finding.subject + ')'));
  addRemedy(output, finding);
}

JSON asJSON(const Finding& finding) {
  return {{"severity", wordOf(finding.severity).word},
          {"subject", finding.subject},
          {"text", finding.text},
          {"remedy", finding.remedy}};
}

void addText(Output& output, const std::vector<Finding>& findings, const Finding* cause) {
  if (cause != nullptr) {
    addWrapped(output, "Cause:", Style::bad, escaped(cause->text));
    addRemedy(output, *cause);
  } else {
    output.line(output.styled(Style::good, "No error was found."));
  }
  output.line("");
  output.line(output.styled(Style::heading, "Findings:"));
  for (const Finding& finding : findings) addFinding(output, finding);
}

Exit examine(const Commands& commands, const std::string& host, Output& output) {
  const auto findings = examineHost(host);
  const auto error = std::ranges::find(findings, Severity::error, &Finding::severity);
  const Finding* const cause = error == findings.end() ? nullptr : &*error;
  if (commands.wantsJSON()) {
    JSON list = JSON::array();
    for (const Finding& finding : findings) list.push_back(asJSON(finding));
    output.json(
        JSON{{"cause", cause == nullptr ? JSON(nullptr) : asJSON(*cause)}, {"findings", list}});
  } else {
    addText(output, findings, cause);
  }
  return cause == nullptr ? Exit::yes : Exit::no;
}

// Asks the helper agent of a host whether it is stuck, too. Says so; empty otherwise.
std::string stuckHelperOf(pid_t host) {
  const auto info = QBHPProcessList::share().infoForPID(host);
  const auto identifier = info ? info->text(infokey::helperBundleIdentifier) : std::nullopt;
  if (!identifier) return "";
  const auto helper = diagnosisOfApplication(*identifier, std::chrono::seconds(0));
  if (!helper.isStuck) return "";
  return ". Its helper agent, process " + std::to_string(helper.process.value_or(0)) +
         ", does not answer either: the host may wait for it on the main thread";
}

// Asks a process that runs, by its ID or its identifier.
Exit examineLive(const Commands& commands, const std::string& target, Output& output) {
  constexpr std::chrono::seconds patience(5);
  if (const auto obstacle = missingBus()) throw Failure(*obstacle);
  pid_t process = 0;
  const char* const end = target.data() + target.size();
  const auto [rest, error] = std::from_chars(target.data(), end, process);
  const bool isProcess = error == std::errc() && rest == end;
  if (!isProcess) process = lookUpPeer(target, patience).process.value_or(0);
  // Both are asked at a time, or a host that waits for its helper agent would take twice as long.
  auto helper = std::async(std::launch::async, [process] { return stuckHelperOf(process); });
  const auto diagnosis =
      isProcess ? diagnosisOfProcess(process, patience) : diagnosisOfApplication(target, patience);
  if (diagnosis.isStuck) throw Failure(diagnosis.obstacle + helper.get());
  if (!diagnosis.text) throw Failure(diagnosis.obstacle);
  if (commands.wantsJSON()) {
    output.json({{"process", diagnosis.process.value_or(0)}, {"text", *diagnosis.text}});
  } else {
    output.outsideLabelled(*diagnosis.text);
  }
  return Exit::yes;
}

struct DoctorArguments {
  std::string host;
  std::string live;
};

Exit run(const Commands& commands, const DoctorArguments& arguments, Output& output) {
  if (arguments.host.empty() == arguments.live.empty()) {
    throw UsageFailure("either HOST or --live is required (see --help)");
  }
  if (!arguments.live.empty()) return examineLive(commands, arguments.live, output);
  return examine(commands, arguments.host, output);
}

}  // namespace

void addDoctor(Commands& commands) {
  const auto arguments = std::make_shared<DoctorArguments>();
  CLI::App& command = commands.add(
      "doctor", "Find out why a host has no helper agent",
      [&commands, arguments](Output& output) { return run(commands, *arguments, output); });
  command.add_option("HOST", arguments->host, "The bundle of the host, as PhotoTool.app")
      ->type_name("");
  command.add_option("--live", arguments->live, "Ask this process for its diagnosis instead")
      ->type_name("PID|IDENTIFIER");
  commands.offerJSON(command);
}

}  // namespace qbdkr::tool
