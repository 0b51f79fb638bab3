#include "Platform/Processes/RunningApplications.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <span>
#include <system_error>

#include <ClientComm/Bundle.h>

#include "Platform/Processes/NativeProcesses.h"
#include "Platform/Processes/ProcessTable.h"

namespace qbdkr {
namespace {

using Clock = std::chrono::steady_clock;

bool hasIdentifier(const ProcessApplication& application, std::string_view bundleIdentifier) {
  return application.info->text(kCFBundleIdentifierKey) == bundleIdentifier;
}

// Waits for the end of a process; false at the deadline.
bool waitForEnd(const Descriptor& end, Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  pollfd state{end.get(), POLLIN, 0};
  const int result = ::poll(&state, 1, static_cast<int>(std::max<Clock::rep>(left.count(), 0)));
  if (result < 0 && errno == EINTR && Clock::now() < deadline) return waitForEnd(end, deadline);
  return result > 0;
}

std::string canonicalPath(const std::string& path) {
  std::error_code error;
  std::string canonical = std::filesystem::weakly_canonical(path, error);
  return error ? path : canonical;
}

}  // namespace

std::shared_ptr<const PropertyList::Dictionary> informationOfProcess(pid_t processID) {
  ProcessSerialNumber number{};
  if (getProcessForPID(processID, &number) != noErr) return nullptr;
  return copyProcessInformation(number);
}

bool isApplicationRunning(std::string_view bundleIdentifier, const std::vector<pid_t>& processes) {
  ApplicationFinder finder;
  return std::ranges::any_of(processes, [&](pid_t process) {
    const auto application = finder.of(process);
    return application && hasIdentifier(*application, bundleIdentifier);
  });
}

std::optional<std::vector<pid_t>> processesOfApplication(std::string_view bundleIdentifier,
                                                         const std::string& bundlePath) {
  const std::string place = canonicalPath(bundlePath);
  auto processes = fetchProcessIDs();
  if (!processes) return std::nullopt;
  ApplicationFinder finder;
  std::erase_if(*processes, [&](pid_t process) {
    const auto application = finder.of(process);
    if (!application) return true;
    const bool isIt = hasIdentifier(*application, bundleIdentifier) && !bundleIdentifier.empty();
    return !isIt && application->bundlePath != place;
  });
  return processes;
}

std::optional<std::vector<RunningApplication>> runningApplications() {
  const auto table = fetchProcessTable();
  if (!table.records) return std::nullopt;
  ApplicationFinder finder;
  std::vector<RunningApplication> running;
  for (const ProcessRecord& process : std::span(table.records.get(), table.count)) {
    auto application = finder.of(process.processID);
    if (!application) continue;
    running.push_back({process.processID, process.effectiveUser, std::move(application->bundlePath),
                       std::move(application->info), residentBytesOf(process.processID),
                       startOfProcess(process.processID)});
  }
  return running;
}

std::vector<HeldProcess> HeldProcess::ofApplication(const std::string& bundlePath,
                                                    WhichProcesses which) {
  const std::string place = canonicalPath(bundlePath);
  const auto table = fetchProcessTable();
  ApplicationFinder finder;
  std::vector<HeldProcess> processes;
  for (const ProcessRecord& process : std::span(table.records.get(), table.count)) {
    if (process.effectiveUser != geteuid()) continue;
    // Holds it first: what is found out below is then about this very process.
    Descriptor end = endOfProcess(process.processID);
    const auto application = end ? finder.of(process.processID) : std::nullopt;
    if (!application || application->bundlePath != place) continue;
    if (which == WhichProcesses::replaced && !runsReplacedFile(process.processID)) continue;
    processes.push_back(HeldProcess(process.processID, std::move(end)));
  }
  return processes;
}

std::optional<HeldProcess> HeldProcess::of(pid_t processID) {
  Descriptor end = endOfProcess(processID);
  if (!end) return std::nullopt;
  return HeldProcess(processID, std::move(end));
}

void HeldProcess::signal(const std::vector<HeldProcess>& processes, int signal) {
  for (const HeldProcess& process : processes) {
    static_cast<void>(signalProcess(process.processID_, process.end_, signal));
  }
}

bool HeldProcess::waitForEnd(const std::vector<HeldProcess>& processes,
                             std::chrono::milliseconds patience) {
  const auto deadline = Clock::now() + patience;
  return std::ranges::all_of(processes, [deadline](const HeldProcess& process) {
    return qbdkr::waitForEnd(process.end_, deadline);
  });
}

bool waitForApplicationsEnd(std::string_view bundleIdentifier, const std::string& bundlePath,
                            std::chrono::milliseconds patience) {
  const auto deadline = Clock::now() + patience;
  for (;;) {
    const auto processes = processesOfApplication(bundleIdentifier, bundlePath);
    if (!processes) return false;
    if (processes->empty()) return true;
    const Descriptor end = endOfProcess(processes->front());
    if (end ? !waitForEnd(end, deadline) : errno != ESRCH) return false;
    if (Clock::now() >= deadline) return false;
  }
}

}  // namespace qbdkr
