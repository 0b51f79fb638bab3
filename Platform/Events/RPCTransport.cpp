#include "Platform/Events/RPCTransport.h"

#include <atomic>

#include "Platform/Events/NativeTransport.h"

namespace qbdkr {
namespace {

std::atomic<RPCTransport*> replacement{nullptr};

}  // namespace

RPCTransport& RPCTransport::shared() {
  if (RPCTransport* transport = replacement.load()) return *transport;
  return nativeTransport();
}

void RPCTransport::replaceShared(RPCTransport* transport) { replacement.store(transport); }

}  // namespace qbdkr
