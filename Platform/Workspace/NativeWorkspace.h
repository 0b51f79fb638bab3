#pragma once

#include <ClientComm/Bundle.h>

namespace qbdkr {

// The system's part of openFile(): starts an application that is not running. The caller holds the
// lock of its bundle, if the file system has locks.
[[nodiscard]] bool openApplication(const Bundle& bundle);

}  // namespace qbdkr
