#include "Platform/RunningApplications.h"

#include <algorithm>
#include <span>

#include "Platform/Bundle.h"
#include "Platform/ProcessTable.h"
#include "Platform/ProcessTableFetch.h"

namespace qbdkr {

std::shared_ptr<const PropertyList::Dictionary> informationOfProcess(pid_t processID) {
  ProcessSerialNumber number{};
  if (getProcessForPID(processID, &number) != noErr) return nullptr;
  return copyProcessInformation(number);
}

bool isApplicationRunning(std::string_view bundleIdentifier) {
  const auto table = fetchProcessTable(queryProcessTable);
  const std::span processes(table.records.get(), table.count);
  return std::ranges::any_of(processes, [&](const ProcessRecord& process) {
    const auto info = informationOfProcess(process.processID);
    return info && info->text(kCFBundleIdentifierKey) == bundleIdentifier;
  });
}

}  // namespace qbdkr
