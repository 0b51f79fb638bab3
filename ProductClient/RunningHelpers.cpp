#include "ProductClient/RunningHelpers.h"

#include <algorithm>

#include <ClientComm/Bundle.h>

#include "Platform/Processes/RunningApplications.h"

namespace qbdkr {

std::vector<Diagnosis::Helper> runningHelpers(
    const HostConfiguration& host,
    const std::function<std::optional<pid_t>(const std::string& bundleIdentifier)>&
        reachedProcess) {
  const std::string identifier = host.helperIdentifier().value_or("");
  const std::string installed = host.installedHelper().value_or("");
  const auto reached = reachedProcess(identifier);
  auto processes = processesOfApplication(identifier, installed).value_or(std::vector<pid_t>());
  if (reached && std::ranges::find(processes, *reached) == processes.end()) {
    processes.push_back(*reached);
  }
  const auto applications = runningApplications().value_or(std::vector<RunningApplication>());
  std::vector<Diagnosis::Helper> helpers;
  for (const pid_t process : processes) {
    Diagnosis::Helper helper{process, std::nullopt, "", std::nullopt, process == reached};
    const auto found = std::ranges::find(applications, process, &RunningApplication::processID);
    if (found != applications.end()) {
      helper.version = found->info->text(kCFBundleVersionKey);
      helper.bundlePath = found->bundlePath;
      helper.since = found->since;
    }
    helpers.push_back(std::move(helper));
  }
  return helpers;
}

}  // namespace qbdkr
