#pragma once

#include <functional>

#include <ClientComm/Export.h>

namespace qbdkr {

// Runs a body on a new detached thread. The host's signals are not handled there, and an exception
// ends only the body. False with errno if no thread can be made, or memory runs out. Any thread;
// does not wait.
QBDKR_EXPORT bool detachNewThread(std::function<void()> body);

}  // namespace qbdkr
