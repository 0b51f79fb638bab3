#pragma once

#include "Platform/Bundle.h"

namespace qbdkr {

// The part of openFile() that is the system's. The caller holds the lock of this bundle.
[[nodiscard]] bool openApplication(const Bundle& bundle);

}  // namespace qbdkr
