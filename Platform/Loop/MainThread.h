#pragma once

#include <ClientComm/Export.h>

namespace qbdkr {

// Tells whether the calling thread is the main thread of this process.
[[nodiscard]] QBDKR_EXPORT bool isOnMainThread();

}  // namespace qbdkr
