#include "Platform/Events/RPCTransport.h"

#include <atomic>
#include <utility>

#include <ClientComm/RunLoop.h>

#include "Platform/Events/NativeTransport.h"

namespace qbdkr {
namespace {

std::atomic<RPCTransport*> replacement{nullptr};

}  // namespace

void RPCTransport::whenHandled(std::function<void()> done) {
  RunLoop::main().perform(std::move(done));
}

RPCTransport& RPCTransport::shared() {
  if (RPCTransport* transport = replacement.load()) return *transport;
  return nativeTransport();
}

void RPCTransport::replaceShared(RPCTransport* transport) { replacement.store(transport); }

}  // namespace qbdkr
