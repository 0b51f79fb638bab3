#pragma once

#include <systemd/sd-event.h>

namespace qbdkr {

// Returns the sd-event object of the main run loop, for the platform's own sources. Use it only on
// the main thread; RunLoop::main().perform() gets there.
sd_event* mainEventLoop();

}  // namespace qbdkr
