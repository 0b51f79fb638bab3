#pragma once

#include <systemd/sd-event.h>

namespace qbdkr {

// The sd-event object of the main run loop, for sources of the platform's own. Only to be touched
// on the main thread; RunLoop::main().perform() gets there.
sd_event* mainEventLoop();

}  // namespace qbdkr
