#include <cstdio>
#include <cstdlib>
#include <span>
#include <utility>

#include <ClientComm/Bundle.h>
#include <ClientComm/QBHPProcessList.h>

#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Processes/ProcessTable.h"
#include "Platform/Processes/RunningApplications.h"

namespace qbdkr {
namespace {

// Replaces the assert macro: the checks hold in every build.
void require(bool condition, const char* text) {
  if (condition) return;
  std::fprintf(stderr, "Assertion failed: (%s), function GetBSDProcessList.\n", text);
  std::abort();
}

}  // namespace

void GetBSDProcessList(ProcessRecord** procList, std::size_t* procCount) {
  require(procList != nullptr, "procList != NULL");
  require(procCount != nullptr, "procCount != NULL");
  auto table = fetchProcessTable();
  *procCount = table.count;
  *procList = table.records.release();
  require((table.error == 0) == (*procList != nullptr), "(err == 0) == (*procList != NULL)");
}

QBHPProcessList& QBHPProcessList::share() {
  static NeverDestroyed list([] { return QBHPProcessList(); });
  return *list;
}

QBHPProcessList::QBHPProcessList() : QBHPProcessList([] {}) {}

QBHPProcessList::QBHPProcessList(std::function<void()> onProcessesRead)
    : onProcessesRead_(std::move(onProcessesRead)) {}

std::vector<QBHPProcessList::Entry> QBHPProcessList::getBSDProcessList() {
  const auto table = fetchProcessTable();
  onProcessesRead_();
  std::vector<Entry> entries;
  for (const ProcessRecord& process : std::span(table.records.get(), table.count)) {
    const auto info = infoForPID(process.processID);
    const auto name = info ? info->text(kCFBundleNameKey) : std::nullopt;
    entries.push_back({{"pname", name.value_or(process.command)},
                       {"pid", std::to_string(process.processID)},
                       {"uid", std::to_string(process.effectiveUser)}});
  }
  return entries;
}

std::shared_ptr<const PropertyList::Dictionary> QBHPProcessList::infoForPID(int pid) {
  return informationOfProcess(pid);
}

bool QBHPProcessList::applicationIsRunning(Text bundleIdentifier, Text bundlePath) {
  if (!bundleIdentifier || !bundlePath) return false;
  const auto processes = fetchProcessIDs();
  onProcessesRead_();
  return processes && isApplicationRunning(*bundleIdentifier, *processes);
}

}  // namespace qbdkr
