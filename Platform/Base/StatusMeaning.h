#pragma once

#include <ClientComm/Status.h>

namespace qbdkr {

// Returns what a status means, for a message, as "the target is not running".
[[nodiscard]] const char* meaningOf(OSErr status);

}  // namespace qbdkr
