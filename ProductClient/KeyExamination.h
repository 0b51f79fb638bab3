#pragma once

#include <ClientComm/PropertyList.h>

#include "ClientComm/HostConfiguration.h"
#include "ProductClient/Findings.h"

namespace qbdkr {

// Examines the keys of a host's information dictionary: that they are there, how they are spelled,
// and how their values are read. The dictionary is that of the file, without localized texts.
void examineKeys(const HostConfiguration& configuration, const PropertyList::Dictionary& file,
                 Findings& findings);

}  // namespace qbdkr
