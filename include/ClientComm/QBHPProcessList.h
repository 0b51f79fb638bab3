#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <ClientComm/Export.h>
#include <ClientComm/ProcessRecord.h>
#include <ClientComm/PropertyList.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

struct FetchedProcessTable;

// Fetches the kernel's table of all processes. The records are in memory from malloc, which the
// caller frees with free(); null and a count of 0 when the table could not be had. Both addresses
// must not be null, or the process ends with an assertion.
QBDKR_EXPORT void GetBSDProcessList(ProcessRecord** procList, std::size_t* procCount);

// What runs on this machine. It keeps nothing between calls, and every call walks the whole process
// table: it is meant for rare use. Any thread.
class QBDKR_EXPORT QBHPProcessList {
 public:
  using Entry = std::map<std::string, std::string>;

  static QBHPProcessList& share();

  QBHPProcessList();

  // One entry a process, in kernel order: "pname" is the name of its application or else its
  // command name, "pid" its id and "uid" its effective user, in decimal. Empty when the table could
  // not be had.
  [[nodiscard]] std::vector<Entry> getBSDProcessList();

  // The information dictionary of the application that a process runs; null when it runs none.
  [[nodiscard]] std::shared_ptr<const PropertyList::Dictionary> infoForPID(int pid);

  // Whether a process runs an application of exactly this bundle identifier. False without looking
  // when an argument is absent; the path takes no further part.
  [[nodiscard]] bool applicationIsRunning(Text bundleIdentifier, Text bundlePath);

 protected:
  // Over another table of processes, for a test.
  explicit QBHPProcessList(std::function<FetchedProcessTable()> table);

 private:
  std::function<FetchedProcessTable()> table_;
};

}  // namespace qbdkr
