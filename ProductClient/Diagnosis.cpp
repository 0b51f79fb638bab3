#include <string>
#include <string_view>

#include <QBDKRProductClient/Diagnosis.h>

#include "Platform/Record/Record.h"

namespace qbdkr {
namespace {

std::string_view severityText(Finding::Severity severity) {
  switch (severity) {
    case Finding::Severity::ok:
      return "ok";
    case Finding::Severity::note:
      return "note";
    case Finding::Severity::warning:
      return "warning";
    case Finding::Severity::error:
      return "error";
  }
  return "";
}

std::string helperText(const Diagnosis::Helper& helper) {
  return "Helper agent: version " + helper.version.value_or("unknown") + ", process " +
         std::to_string(helper.processID) +
         (helper.since ? ", since " + timeText(*helper.since) : "") +
         (helper.isReached ? ", reached" : ", not reached on this bus") +
         (helper.bundlePath.empty() ? "" : ", " + helper.bundlePath) + '\n';
}

}  // namespace

std::string Diagnosis::text() const {
  std::string text;
  if (cause) {
    text += "Cause: " + cause->text + "\nRemedy: " + cause->remedy + '\n';
  } else {
    text += "Nothing is wrong.\n";
  }
  for (const Helper& helper : helpers) text += helperText(helper);
  if (helpers.empty()) text += "Helper agent: none runs\n";
  for (const Waiting& request : waiting) {
    text += "Waiting: " + request.text + ", for " + std::to_string(request.time.count()) + " ms" +
            (request.isOnMainThread ? ", on the main thread" : "") + '\n';
  }
  for (const Finding& finding : findings) {
    if (finding.severity == Finding::Severity::ok) continue;
    text.append("Finding: ").append(severityText(finding.severity));
    text += ": " + finding.text + '\n';
  }
  for (const RecordedStep& step : steps) {
    text += "Step: " + timeText(step.time) + ' ' + step.text() + '\n';
  }
  return text;
}

}  // namespace qbdkr
