#include "Platform/Events/AppleEvents/ReplyPortMacOS.h"

#include <mach/mach.h>

#include <mutex>
#include <utility>
#include <vector>

#include "Platform/Base/DropExceptions.h"
#include "Platform/Base/NeverDestroyed.h"

namespace qbdkr {
namespace {

// The ports of threads that have ended.
class Pool {
 public:
  void add(mach_port_t port) {
    const std::lock_guard lock(mutex_);
    ports_.push_back(port);
  }

  // Returns 0 if none is left.
  mach_port_t take() {
    const std::lock_guard lock(mutex_);
    if (ports_.empty()) return MACH_PORT_NULL;
    const mach_port_t port = ports_.back();
    ports_.pop_back();
    return port;
  }

  static Pool& shared() {
    static NeverDestroyed pool([] { return Pool(); });
    return *pool;
  }

 private:
  std::mutex mutex_;
  std::vector<mach_port_t> ports_;
};

}  // namespace

ReplyPort::~ReplyPort() {
  if (port_ != MACH_PORT_NULL) dropExceptions([this] { Pool::shared().add(port_); });
}

ReplyPort& ReplyPort::ofThisThread() {
  thread_local ReplyPort port;
  return port;
}

OSErr ReplyPort::nameIn(AEDesc& message) {
  if (!get()) return paramErr;
  return AEPutAttributePtr(&message, keyReplyPortAttr, typeMachPort, &port_, sizeof port_);
}

void ReplyPort::giveUp() {
  const mach_port_t port = std::exchange(port_, MACH_PORT_NULL);
  if (port != MACH_PORT_NULL) {
    mach_port_mod_refs(mach_task_self(), port, MACH_PORT_RIGHT_RECEIVE, -1);
  }
}

bool ReplyPort::get() {
  if (port_ == MACH_PORT_NULL) port_ = Pool::shared().take();
  return port_ != MACH_PORT_NULL ||
         mach_port_allocate(mach_task_self(), MACH_PORT_RIGHT_RECEIVE, &port_) == KERN_SUCCESS;
}

}  // namespace qbdkr
