#pragma once

#include <functional>

namespace qbdkr {

// Runs a body on a new thread that nobody waits for. The host's signals are not handled there, and
// an exception ends the body and nothing else. False when no thread could be made,
// for want of memory too.
bool detachNewThread(std::function<void()> body);

}  // namespace qbdkr
