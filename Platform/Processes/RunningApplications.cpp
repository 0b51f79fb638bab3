#include "Platform/Processes/RunningApplications.h"

#include <algorithm>
#include <span>

#include <ClientComm/Bundle.h>

#include "Platform/Processes/NativeProcesses.h"
#include "Platform/Processes/ProcessTable.h"

namespace qbdkr {

std::shared_ptr<const PropertyList::Dictionary> informationOfProcess(pid_t processID) {
  ProcessSerialNumber number{};
  if (getProcessForPID(processID, &number) != noErr) return nullptr;
  return copyProcessInformation(number);
}

bool isApplicationRunning(std::string_view bundleIdentifier, const FetchedProcessTable& table) {
  const std::span processes(table.records.get(), table.count);
  return std::ranges::any_of(processes, [&](const ProcessRecord& process) {
    const auto info = informationOfProcess(process.processID);
    return info && info->text(kCFBundleIdentifierKey) == bundleIdentifier;
  });
}

}  // namespace qbdkr
