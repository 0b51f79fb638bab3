#pragma once

#include <mach/mach.h>

#include <vector>

// Mach ports, as numbers with a queue of messages each.
namespace doubles {

// The ports that a program has allocated so far, and those of them that it has released.
std::vector<mach_port_t> allocatedPorts();
std::vector<mach_port_t> releasedPorts();

// Lays a message at a port; the receiver owns it. Any thread.
void sendMessage(mach_port_t port, void* message);
// Takes the first message at a port; null without one.
void* takeMessage(mach_port_t port);

// Returns a descriptor that is readable while messages lie at a port.
int descriptorOfPort(mach_port_t port);

}  // namespace doubles
