#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <ClientComm/Export.h>
#include <ClientComm/PropertyList.h>

#include "Platform/Base/Descriptor.h"

namespace qbdkr {

// Returns the information dictionary of the application that a process runs; null if it runs none.
[[nodiscard]] std::shared_ptr<const PropertyList::Dictionary> informationOfProcess(pid_t processID);

// Returns whether any of these processes runs an application of that bundle identifier. Blocks for
// the information property lists of the applications.
[[nodiscard]] bool isApplicationRunning(std::string_view bundleIdentifier,
                                        const std::vector<pid_t>& processes);

// Returns the processes that run an application of that bundle identifier, or that of the bundle at
// a path, which may have no identifier. Absent if the process table cannot be read. Blocks
// likewise.
[[nodiscard]] QBDKR_EXPORT std::optional<std::vector<pid_t>> processesOfApplication(
    std::string_view bundleIdentifier, const std::string& bundlePath);

// A process that runs an application.
struct RunningApplication {
  pid_t processID;
  uid_t effectiveUser;
  std::string bundlePath;
  std::shared_ptr<const PropertyList::Dictionary> info;  // never null
  // Absent if the system does not tell.
  std::optional<std::uint64_t> residentBytes;
  std::optional<std::chrono::system_clock::time_point> since;
};

// Returns the processes that run an application, in the order of the process table. Absent if that
// cannot be read. Of other users' processes only a privileged user learns the application. Blocks
// likewise.
[[nodiscard]] QBDKR_EXPORT std::optional<std::vector<RunningApplication>> runningApplications();

// Which processes of an application: all of them, or those whose executable was replaced.
enum class WhichProcesses { all, replaced };

// A process that may be signalled: the system has not given its ID to another one.
class HeldProcess {
 public:
  // Returns the processes of this user that run the application of the bundle at a path.
  [[nodiscard]] QBDKR_EXPORT static std::vector<HeldProcess> ofApplication(
      const std::string& bundlePath, WhichProcesses which);

  // Returns a process that runs, whatever its program; absent if it does not, or the process is out
  // of descriptors.
  [[nodiscard]] QBDKR_EXPORT static std::optional<HeldProcess> of(pid_t processID);

  [[nodiscard]] pid_t processID() const { return processID_; }
  [[nodiscard]] bool hasEnded() const { return end_.isReadable(); }

  // Sends a signal to each that runs.
  QBDKR_EXPORT static void signal(const std::vector<HeldProcess>& processes, int signal);

  // Waits until all have ended, or the time is over. True in the first case.
  [[nodiscard]] QBDKR_EXPORT static bool waitForEnd(const std::vector<HeldProcess>& processes,
                                                    std::chrono::milliseconds patience);

 private:
  HeldProcess(pid_t processID, Descriptor end) : processID_(processID), end_(std::move(end)) {}

  pid_t processID_;
  Descriptor end_;
};

// Waits until no such process runs, or the time is over. True in the first case; false at once if
// the system does not tell. Any thread.
[[nodiscard]] QBDKR_EXPORT bool waitForApplicationsEnd(std::string_view bundleIdentifier,
                                                       const std::string& bundlePath,
                                                       std::chrono::milliseconds patience);

}  // namespace qbdkr
