#include "Platform/Processes/RunningApplications.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <span>

#include <ClientComm/Bundle.h>

#include "Platform/Processes/NativeProcesses.h"
#include "Platform/Processes/ProcessTable.h"

namespace qbdkr {
namespace {

using Clock = std::chrono::steady_clock;

bool hasIdentifier(const ProcessApplication& application, std::string_view bundleIdentifier) {
  return application.info->text(kCFBundleIdentifierKey) == bundleIdentifier;
}

// Waits for a process that ends; false at the deadline, or if it cannot be watched.
bool waitForEnd(pid_t processID, Clock::time_point deadline) {
  const Descriptor end = endOfProcess(processID);
  if (!end) return errno == ESRCH;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  pollfd state{end.get(), POLLIN, 0};
  const int result = ::poll(&state, 1, static_cast<int>(std::max<Clock::rep>(left.count(), 0)));
  return result > 0 || (result < 0 && errno == EINTR && Clock::now() < deadline);
}

}  // namespace

std::shared_ptr<const PropertyList::Dictionary> informationOfProcess(pid_t processID) {
  ProcessSerialNumber number{};
  if (getProcessForPID(processID, &number) != noErr) return nullptr;
  return copyProcessInformation(number);
}

bool isApplicationRunning(std::string_view bundleIdentifier, const FetchedProcessTable& table) {
  const std::span processes(table.records.get(), table.count);
  return std::ranges::any_of(processes, [&](const ProcessRecord& process) {
    const auto application = applicationOfProcess(process.processID);
    return application && hasIdentifier(*application, bundleIdentifier);
  });
}

std::vector<pid_t> processesOfApplication(std::string_view bundleIdentifier,
                                          const std::string& bundlePath) {
  std::error_code error;
  const std::string place = std::filesystem::weakly_canonical(bundlePath, error);
  const auto table = fetchProcessTable();
  std::vector<pid_t> processes;
  for (const ProcessRecord& process : std::span(table.records.get(), table.count)) {
    const auto application = applicationOfProcess(process.processID);
    if (!application) continue;
    const bool isIt = hasIdentifier(*application, bundleIdentifier) && !bundleIdentifier.empty();
    if (isIt || (!error && application->bundlePath == place)) {
      processes.push_back(process.processID);
    }
  }
  return processes;
}

bool waitForApplicationsEnd(std::string_view bundleIdentifier, const std::string& bundlePath,
                            std::chrono::milliseconds patience) {
  const auto deadline = Clock::now() + patience;
  for (;;) {
    const auto processes = processesOfApplication(bundleIdentifier, bundlePath);
    if (processes.empty()) return true;
    if (Clock::now() >= deadline || !waitForEnd(processes.front(), deadline)) return false;
  }
}

}  // namespace qbdkr
