#pragma once

#include <string>
#include <vector>

#include <ClientComm/Export.h>
#include <QBDKRProductClient/Finding.h>

namespace qbdkr {

// Examines the bundle of a host at a path, which need not be the bundle of this process: finds out
// why it has no helper agent. Returns the findings in the order in which a host depends on them, so
// the first error is the cause; what follows from an error is left out.
//
// Starts nothing but the system's own loader, which lists libraries, and writes nothing. Takes the
// environment of this process for that of the host. Blocks for the file system; waits 0.9 s at most
// for the bus, and as long for the loader. Any thread. Throws only std::bad_alloc.
[[nodiscard]] QBDKR_EXPORT std::vector<Finding> examineHost(const std::string& bundlePath);

}  // namespace qbdkr
