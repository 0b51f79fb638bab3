#include "Platform/RPCHandler.h"

#include <utility>

#include "Platform/RPCEvent.h"

namespace qbdkr {

void RPCHandler::set(AppleEventTransport::EventHandler handler) {
  const std::lock_guard lock(mutex_);
  handler_ = std::move(handler);
}

bool RPCHandler::isSet() const {
  const std::lock_guard lock(mutex_);
  return handler_ != nullptr;
}

AppleEventTransport::EventHandler RPCHandler::handler() const {
  const std::lock_guard lock(mutex_);
  return handler_;
}

RPCHandler::Answer RPCHandler::handle(std::optional<AppleEventDescriptor> directObject,
                                      std::optional<AppleEventDescriptor> address) const noexcept {
  try {
    const auto body = handler();
    if (!body) return {errAEEventNotHandled, {}};
    if (!directObject || !isRPCObject(*directObject)) return {paramErr, {}};
    AppleEvent event(kCoreEventClass, kAECall, {}, kAutoGenerateReturnID, kAnyTransactionID);
    event.setParamDescriptor(keyDirectObject, *std::move(directObject));
    if (address) event.setAttributeDescriptor(keyAddressAttr, *std::move(address));
    AppleEvent reply;
    body(event, reply);
    const AppleEventDescriptor* result = reply.paramDescriptor(keyDirectObject);
    if (result == nullptr) return {};
    auto text = result->stringValue().value_or("");
    if (!isSendable(text)) return {errAEEventFailed, {}};
    return {noErr, std::move(text)};
  } catch (...) {
    return {errAEEventFailed, {}};
  }
}

}  // namespace qbdkr
