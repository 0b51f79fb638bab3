#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <ClientComm/PropertyList.h>
#include <ClientComm/Status.h>

#include "Platform/Base/Descriptor.h"
#include "Platform/Processes/ProcessTable.h"

namespace qbdkr {

// Copies the kernel's process table. Without a buffer it stores in length how many bytes the table
// needs now; with a buffer of length bytes, how many it wrote. Returns 0 or an errno value: ENOMEM
// if the table has grown beyond the buffer.
[[nodiscard]] int queryProcessTable(ProcessRecord* buffer, std::size_t* length);

// The system's part of fetchProcessIDs().
[[nodiscard]] std::optional<std::vector<pid_t>> allProcesses();

// Stores the serial number of a process. Returns procNotFound if the id is not positive. On Linux
// every other id has a serial number, whether an application runs under it or not.
[[nodiscard]] OSErr getProcessForPID(pid_t processID, ProcessSerialNumber* number);

// Returns the information dictionary of the application that a process runs; null if it runs none.
[[nodiscard]] std::shared_ptr<const PropertyList::Dictionary> copyProcessInformation(
    const ProcessSerialNumber& number);

// The application that a process runs.
struct ProcessApplication {
  std::string bundlePath;
  std::shared_ptr<const PropertyList::Dictionary> info;  // never null
};

// Finds the applications of processes, one after another. Many processes share a directory: looks
// once whether that is outside any bundle.
class ApplicationFinder {
 public:
  // Returns the application that a process runs; absent if it runs none, or another program of its
  // bundle.
  [[nodiscard]] std::optional<ProcessApplication> of(pid_t processID);

 private:
  std::set<std::string, std::less<>> outsideBundles_;  // directories
};

// Returns the bytes of memory in which a process resides. Absent if it has ended, or if the system
// does not tell.
[[nodiscard]] std::optional<std::uint64_t> residentBytesOf(pid_t processID);

// Returns a descriptor that becomes readable when a process ends. Empty with errno on failure:
// ESRCH if it has ended.
[[nodiscard]] Descriptor endOfProcess(pid_t processID);

// Returns the time at which a process was started. Absent if it has ended, or the system does not
// tell: macOS is not asked.
[[nodiscard]] std::optional<std::chrono::system_clock::time_point> startOfProcess(pid_t processID);

// Says how the process ended whose end this is: "exit status 1", "signal 11". Empty if the system
// does not tell: macOS never does, and Linux from version 6.15 on.
[[nodiscard]] std::string endingOf(const Descriptor& end);

// Sends a signal to a process whose end is watched. Does not hit a later process of the same ID.
[[nodiscard]] bool signalProcess(pid_t processID, const Descriptor& end, int signal);

// Tells whether a process runs a file that was removed or replaced since. False if the system does
// not tell.
[[nodiscard]] bool runsReplacedFile(pid_t processID);

}  // namespace qbdkr
