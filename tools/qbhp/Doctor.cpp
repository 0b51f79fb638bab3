// qbhp doctor: finds out why a host has no helper agent.

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ProductClient/HostExamination.h"
#include "tools/qbhp/Command.h"

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

// Adds a text with a word before its first line, and breaks it at its blanks. A word that is longer
// than a line, such as a path, stays whole, so that it can be copied.
void addWrapped(Output& output, std::string_view before, Style style, std::string_view text) {
  constexpr std::size_t indent = 9;
  std::string line = output.styled(style, before);
  line.append(indent - std::min(before.size(), indent), ' ');
  std::size_t width = indent;
  while (!text.empty()) {
    const auto end = std::min(text.find(' '), text.size());
    const std::string_view word = text.substr(0, end);
    if (width > indent && width + 1 + word.size() > output.columns()) {
      output.line(line);
      line.assign(indent, ' ');
      width = indent;
    }
    if (width > indent) {
      line += ' ';
      ++width;
    }
    line += word;
    width += word.size();
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  output.line(line);
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

}  // namespace

void addDoctor(Commands& commands) {
  const auto host = std::make_shared<std::string>();
  CLI::App& command =
      commands.add("doctor", "Find out why a host has no helper agent",
                   [&commands, host](Output& output) { return examine(commands, *host, output); });
  command.add_option("HOST", *host, "The bundle of the host, as PhotoTool.app")
      ->required()
      ->type_name("");
  commands.offerJSON(command);
}

}  // namespace qbdkr::tool
