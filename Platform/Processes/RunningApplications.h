#pragma once

#include <sys/types.h>

#include <memory>
#include <string_view>

#include "Platform/Processes/ProcessTable.h"
#include "Platform/PropertyLists/PropertyList.h"

namespace qbdkr {

// The information dictionary of the application that a process runs; null when it is none.
[[nodiscard]] std::shared_ptr<const PropertyList::Dictionary> informationOfProcess(pid_t processID);

// Whether any process of the table runs an application of that bundle identifier.
[[nodiscard]] bool isApplicationRunning(std::string_view bundleIdentifier,
                                        const FetchedProcessTable& table);

}  // namespace qbdkr
