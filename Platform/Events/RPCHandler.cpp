#include "Platform/Events/RPCHandler.h"

#include <utility>

namespace qbdkr {

void RPCHandler::set(RPCTransport::Handler handler) {
  // Destroys the old handler after it releases the lock: its destruction may call back here.
  const std::lock_guard lock(mutex_);
  handler_.swap(handler);
}

bool RPCHandler::isSet() const {
  const std::lock_guard lock(mutex_);
  return handler_ != nullptr;
}

RPCTransport::Handler RPCHandler::handler() const {
  const std::lock_guard lock(mutex_);
  return handler_;
}

RPCTransport::Answer RPCHandler::handle(const RPCEvent& event,
                                        const std::optional<std::string>& sender) const noexcept {
  try {
    const auto body = handler();
    if (!body) return {errAEEventNotHandled, std::nullopt};
    auto result = body(event, sender);
    if (result && !isSendableResult(*result)) return {errAEEventFailed, std::nullopt};
    return {noErr, std::move(result)};
  } catch (...) {
    return {errAEEventFailed, std::nullopt};
  }
}

}  // namespace qbdkr
