#include "Platform/RPCTransport.h"

#include <atomic>

namespace qbdkr {
namespace {

std::atomic<RPCTransport*> replacement{nullptr};

}  // namespace

RPCTransport& RPCTransport::shared() {
  if (RPCTransport* transport = replacement.load()) return *transport;
  return platformRPCTransport();
}

void RPCTransport::replaceShared(RPCTransport* transport) { replacement.store(transport); }

}  // namespace qbdkr
