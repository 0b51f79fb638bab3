#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <ClientComm/Export.h>
#include <ClientComm/PropertyList.h>

#include "Platform/Processes/ProcessTable.h"

namespace qbdkr {

// Returns the information dictionary of the application that a process runs; null if it runs none.
[[nodiscard]] std::shared_ptr<const PropertyList::Dictionary> informationOfProcess(pid_t processID);

// Returns whether any process of the table runs an application of that bundle identifier. Blocks
// for the information property lists of the applications.
[[nodiscard]] bool isApplicationRunning(std::string_view bundleIdentifier,
                                        const FetchedProcessTable& table);

// Returns the processes that run an application of that bundle identifier, or that of the bundle at
// a path, which may have no identifier. Blocks likewise.
[[nodiscard]] std::vector<pid_t> processesOfApplication(std::string_view bundleIdentifier,
                                                        const std::string& bundlePath);

// Waits until no such process runs, or the time is over. True in the first case. Any thread.
[[nodiscard]] QBDKR_EXPORT bool waitForApplicationsEnd(std::string_view bundleIdentifier,
                                                       const std::string& bundlePath,
                                                       std::chrono::milliseconds patience);

}  // namespace qbdkr
