#pragma once

#include "ClientComm/HostConfiguration.h"
#include "ProductClient/Findings.h"

namespace qbdkr {

// Examines how requests travel to the helper agent, whether it is switched off, and which processes
// run it.
void examinePresence(const HostConfiguration& configuration, Findings& findings);

}  // namespace qbdkr
