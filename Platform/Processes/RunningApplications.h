#pragma once

#include <sys/types.h>

#include <memory>
#include <string_view>

#include <ClientComm/PropertyList.h>

#include "Platform/Processes/ProcessTable.h"

namespace qbdkr {

// Returns the information dictionary of the application that a process runs; null if it runs none.
[[nodiscard]] std::shared_ptr<const PropertyList::Dictionary> informationOfProcess(pid_t processID);

// Returns whether any process of the table runs an application of that bundle identifier. Blocks
// for the information property lists of the applications.
[[nodiscard]] bool isApplicationRunning(std::string_view bundleIdentifier,
                                        const FetchedProcessTable& table);

}  // namespace qbdkr
