#pragma once

#include <string>

#include <ClientComm/Export.h>

namespace qbdkr {

// Opens an application bundle: starts it, detached from this process, unless an application of its
// identifier is running or being opened already, from any process. Blocks until the application can
// be reached, or for 10 s; before that, for 15 s at most while another process opens it. If another
// thread of this process is at the same bundle, waits for that thread, 30 s at most, and takes its
// outcome. False if it is not running and cannot be executed, ends before it can be reached, or is
// locked by another process all that time. Any thread.
[[nodiscard]] QBDKR_EXPORT bool openFile(const std::string& bundlePath);

// Waits while any process or thread is opening an application bundle, whose application may run but
// not be reachable yet: 15 s at most for another process, 30 s for a thread of this one. Returns at
// once if the bundle is not being opened. Any thread.
QBDKR_EXPORT void waitWhileOpened(const std::string& bundlePath);

}  // namespace qbdkr
