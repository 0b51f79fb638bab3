#include "macos/doubles/Processes.h"

#include <algorithm>
#include <cerrno>
#include <memory>

#include <ClientComm/Bundle.h>

#include "Platform/Processes/NativeProcesses.h"

doubles::Processes& doubles::Processes::shared() {
  static Processes processes;
  return processes;
}

namespace qbdkr {
namespace {

using doubles::Processes;
using Information = std::shared_ptr<const PropertyList::Dictionary>;

Information informationOf(pid_t process) {
  auto& all = Processes::shared();
  if (all.onLook) all.onLook(++all.looks);
  const auto found = std::ranges::find(all.applications, process, &doubles::Application::process);
  if (found == all.applications.end()) return nullptr;
  PropertyList::Dictionary information;
  information.set(kCFBundleIdentifierKey, found->identifier);
  if (found->hasCheckedIn) information.set("IsCheckedInAttr", *found->hasCheckedIn);
  return std::make_shared<const PropertyList::Dictionary>(std::move(information));
}

}  // namespace

std::optional<std::vector<pid_t>> allProcesses() {
  std::vector<pid_t> processes;
  for (const auto& application : Processes::shared().applications) {
    processes.push_back(application.process);
  }
  return processes;
}

OSErr getProcessForPID(pid_t process, ProcessSerialNumber* number) {
  *number = {0, static_cast<std::uint32_t>(process)};
  return noErr;
}

Information copyProcessInformation(const ProcessSerialNumber& number) {
  return informationOf(static_cast<pid_t>(number.lowLongOfPSN));
}

std::optional<ProcessApplication> ApplicationFinder::of(pid_t process) {
  auto information = informationOf(process);
  if (!information) return std::nullopt;
  return ProcessApplication{"/nowhere", std::move(information)};
}

int queryProcessTable(ProcessRecord*, std::size_t*) { return EAGAIN; }
std::optional<std::uint64_t> residentBytesOf(pid_t) { return std::nullopt; }
bool signalProcess(pid_t, const Descriptor&, int) { return false; }
bool runsReplacedFile(pid_t) { return false; }
Descriptor endOfProcess(pid_t) { return Descriptor(); }
std::optional<std::chrono::system_clock::time_point> startOfProcess(pid_t) { return std::nullopt; }
std::string endingOf(const Descriptor&) { return ""; }

}  // namespace qbdkr
