#pragma once

#include <ClientComm/Export.h>
#include <ClientComm/Status.h>

namespace qbdkr {

// Returns what a status means, for a message, as "the target is not running".
[[nodiscard]] QBDKR_EXPORT const char* meaningOf(OSErr status);

}  // namespace qbdkr
