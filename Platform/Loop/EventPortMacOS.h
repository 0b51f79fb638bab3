#pragma once

#include <CoreServices/CoreServices.h>

namespace qbdkr {

// Makes the main thread's run loop receive Apple events, for good, and returns their port. Returns
// 0, without effect, if the process has an application object of AppKit, whose own loop takes them,
// or if the port cannot be watched. Main thread only.
mach_port_t listenForEvents();

}  // namespace qbdkr
