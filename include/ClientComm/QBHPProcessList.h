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

// Fetches the kernel's table of all processes. The caller releases the records with free(). Null
// and a count of 0 if the table cannot be read. Neither address may be null: an assertion would end
// the process. Any thread; blocks for the system.
QBDKR_EXPORT void GetBSDProcessList(ProcessRecord** procList, std::size_t* procCount);

// Lists the processes of this machine. Each call reads the system's state anew; those without a
// process ID read the whole process table and are meant for rare use. Any thread; blocks for the
// system's files.
class QBDKR_EXPORT QBHPProcessList {
 public:
  // The keys and texts of one process.
  using Entry = std::map<std::string, std::string>;

  // Returns the list of this process, made on first use, never destroyed.
  static QBHPProcessList& share();

  // Makes a further one, which is the same.
  QBHPProcessList();

  // Returns one entry per process, in kernel order: "pname" is the name of its application or else
  // its command name, "pid" its ID and "uid" its effective user, in decimal. Empty if the table
  // cannot be read.
  [[nodiscard]] std::vector<Entry> getBSDProcessList();

  // Returns the information dictionary of the application that a process runs; null if it runs no
  // application.
  [[nodiscard]] std::shared_ptr<const PropertyList::Dictionary> infoForPID(int pid);

  // Tells whether any process runs an application with exactly this bundle identifier. False if an
  // argument is absent; the path has no other effect.
  [[nodiscard]] bool applicationIsRunning(Text bundleIdentifier, Text bundlePath);

 protected:
  // Calls a function between the processes and their applications, in a test.
  explicit QBHPProcessList(std::function<void()> onProcessesRead);

 private:
  std::function<void()> onProcessesRead_;
};

}  // namespace qbdkr
