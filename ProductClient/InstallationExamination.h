#pragma once

#include "ClientComm/HostConfiguration.h"
#include "ProductClient/Findings.h"

namespace qbdkr {

// The effect of a host's next start on the installed copy.
enum class NextStart {
  installs,
  upgrades,
  keepsSame,   // a copy of the same version
  keepsNewer,  // a copy of a newer version
  unknown,     // as without a resource, or if a version is too long for one
};

// Decides it by the rules of the installer. Both are paths of bundles; absent if the host names
// none. Blocks for the files.
[[nodiscard]] NextStart nextStartWith(const String& resource, const String& installed);

// Examines the directory that the helper agent is installed into: the path, the file system, the
// room, leftovers, and the installed copy with what the next start would do to it. The resource is
// the usable bundle among the host's resources; absent if it is missing or has an error.
void examineInstallation(const HostConfiguration& configuration, const String& resource,
                         Findings& findings);

}  // namespace qbdkr
