#pragma once

#include <CoreServices/CoreServices.h>

namespace qbdkr {

// Lets Apple events in on the main thread's run loop, once and for all, and returns the port they
// come in by. 0, and nothing is done, when the process has an application object of AppKit's, whose
// own loop takes them. Only on the main thread.
mach_port_t listenForEvents();

}  // namespace qbdkr
