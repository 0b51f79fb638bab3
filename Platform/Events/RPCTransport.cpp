#include "Platform/Events/RPCTransport.h"

#include <atomic>
#include <memory>
#include <utility>

#include <ClientComm/RunLoop.h>

#include "Platform/Events/AwaitedAnswer.h"
#include "Platform/Events/NativeTransport.h"

namespace qbdkr {
namespace {

std::atomic<RPCTransport*> replacement{nullptr};

}  // namespace

void RPCTransport::whenHandled(std::function<void()> done) {
  RunLoop::main().perform(std::move(done));
}

RPCTransport::Answer RPCTransport::askWithin(const RequestLimits& limits, const RPCTarget& target,
                                             const RPCEvent& event) {
  const auto awaited = std::make_shared<AwaitedAnswer>();
  const bool isStarted =
      start(target, event, limits, [awaited](Answer answer) { awaited->set(std::move(answer)); });
  return isStarted ? awaited->get() : Answer{paramErr, {}};
}

RPCTransport& RPCTransport::shared() {
  if (RPCTransport* transport = replacement.load()) return *transport;
  return nativeTransport();
}

void RPCTransport::replaceShared(RPCTransport* transport) { replacement.store(transport); }

}  // namespace qbdkr
