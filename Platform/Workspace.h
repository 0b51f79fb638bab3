#pragma once

#include <string>

#include "Platform/Export.h"

namespace qbdkr {

// Opens an application bundle: starts it, detached from this process, unless an application of its
// identifier is running or being opened already, from any process. Blocks until the application can
// be reached, or for 10 s; not for one that something else has started just now. False when it is
// not running and cannot be executed, or ends before it can be reached. Any thread.
[[nodiscard]] QBDKR_EXPORT bool openFile(const std::string& bundlePath);

// Waits while any process is opening an application bundle, which is then running but perhaps not
// to be reached yet; returns at once when nobody is. Any thread.
QBDKR_EXPORT void waitWhileOpened(const std::string& bundlePath);

}  // namespace qbdkr
