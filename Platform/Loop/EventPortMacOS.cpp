#include "Platform/Loop/EventPortMacOS.h"

#include <dlfcn.h>

#include "Platform/Base/CoreFoundationRefMacOS.h"

namespace qbdkr {
namespace {

// AppKit is not linked here, and a helper agent may well run without it.
bool hasApplicationObject() {
  const auto* object = static_cast<void* const*>(dlsym(RTLD_DEFAULT, "NSApp"));
  return object != nullptr && *object != nullptr;
}

void onMessage(CFMachPortRef, void* message, CFIndex, void*) {
  AEProcessMessage(static_cast<mach_msg_header_t*>(message));
}

mach_port_t addEventPort() {
  const mach_port_t name = AEGetRegisteredMachPort();
  if (name == MACH_PORT_NULL) return MACH_PORT_NULL;
  const CFRef<CFMachPortRef> port(
      CFMachPortCreateWithPort(kCFAllocatorDefault, name, onMessage, nullptr, nullptr));
  if (!port) return MACH_PORT_NULL;
  const CFRef<CFRunLoopSourceRef> source(
      CFMachPortCreateRunLoopSource(kCFAllocatorDefault, port.get(), 0));
  if (!source) return MACH_PORT_NULL;
  CFRunLoopAddSource(CFRunLoopGetMain(), source.get(), kCFRunLoopCommonModes);
  return name;
}

}  // namespace

mach_port_t listenForEvents() {
  static mach_port_t port = MACH_PORT_NULL;
  if (port == MACH_PORT_NULL && !hasApplicationObject()) port = addEventPort();
  return port;
}

}  // namespace qbdkr
