#pragma once

#include "ClientComm/TextValue.h"
#include "Platform/Base/Export.h"

namespace qbdkr {

// Where the helper agent comes from and goes to, as the host's information dictionary says.
struct QBDKR_EXPORT HelperConfiguration {
  String bundleIdentifier;
  String appName;
  String installDirectory;  // without a leading "~"

  // The path of the installed copy; absent when its name or the directory is missing.
  [[nodiscard]] String installedCopy() const;
};

[[nodiscard]] QBDKR_EXPORT HelperConfiguration helperConfiguration();

// Whether the host wants its requests to reach the installed copy alone.
[[nodiscard]] bool helperMustBeInstalledCopy();

}  // namespace qbdkr
