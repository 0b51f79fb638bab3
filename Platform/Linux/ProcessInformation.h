#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

#include "Platform/PropertyList.h"

namespace qbdkr {

// The path that the system shows for what a process runs; absent for one that has ended, and for
// one that this process may not look into.
[[nodiscard]] std::optional<std::string> executableOfProcess(pid_t processID);

using ProcessInformation = std::shared_ptr<const PropertyList::Dictionary>;

// Keeps what is known of a process now, so that copyProcessInformation() still answers after it has
// ended: an application that reports and exits is gone before its last event is read. The owner of
// the memory forgets it when the bus says that the process is gone, which is after its last event.
void rememberProcessInformation(pid_t processID);
void forgetProcessInformation(pid_t processID);

}  // namespace qbdkr
