#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <QBDKRProductClient/Diagnosis.h>

#include "ClientComm/HostConfiguration.h"

namespace qbdkr {

// Returns the processes that run the helper agent of a host, by its identifier or from its
// installed copy, and the process that its requests reach, whatever that runs. Blocks for the
// process table, the information property lists of the applications, and the bus. Throws only
// std::bad_alloc.
[[nodiscard]] std::vector<Diagnosis::Helper> runningHelpers(
    const HostConfiguration& host,
    const std::function<std::optional<pid_t>(const std::string& bundleIdentifier)>& reachedProcess);

}  // namespace qbdkr
