#pragma once

#include "Platform/Bundles/Bundle.h"

namespace qbdkr {

// The part of openFile() that is the system's: starts an application that is not running. The
// caller holds the lock of its bundle.
[[nodiscard]] bool openApplication(const Bundle& bundle);

}  // namespace qbdkr
