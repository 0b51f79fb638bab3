#include "macos/doubles/Mach.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>

mach_port_t mach_task_self_ = 1;

namespace {

struct Port {
  // Readable as often as messages lie there.
  const int descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE);
  std::deque<void*> messages;
};

std::mutex mutex;
std::map<mach_port_t, Port> ports;
std::vector<mach_port_t> allocated;
std::vector<mach_port_t> released;
mach_port_t last = 1000;

}  // namespace

kern_return_t mach_port_allocate(mach_port_t, mach_port_right_t, mach_port_t* name) {
  const std::lock_guard lock(mutex);
  *name = ++last;
  allocated.push_back(last);
  return KERN_SUCCESS;
}

kern_return_t mach_port_mod_refs(mach_port_t, mach_port_t name, mach_port_right_t,
                                 mach_port_delta_t) {
  const std::lock_guard lock(mutex);
  released.push_back(name);
  return KERN_SUCCESS;
}

namespace doubles {

std::vector<mach_port_t> allocatedPorts() {
  const std::lock_guard lock(mutex);
  return allocated;
}

std::vector<mach_port_t> releasedPorts() {
  const std::lock_guard lock(mutex);
  return released;
}

void sendMessage(mach_port_t port, void* message) {
  const std::lock_guard lock(mutex);
  ports[port].messages.push_back(message);
  ::eventfd_write(ports[port].descriptor, 1);
}

void* takeMessage(mach_port_t port) {
  const std::lock_guard lock(mutex);
  auto& [descriptor, messages] = ports[port];
  if (messages.empty()) return nullptr;
  void* message = messages.front();
  messages.pop_front();
  std::uint64_t one = 0;
  ::eventfd_read(descriptor, &one);
  return message;
}

int descriptorOfPort(mach_port_t port) {
  const std::lock_guard lock(mutex);
  return ports[port].descriptor;
}

}  // namespace doubles
