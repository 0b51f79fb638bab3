#include "Platform/RPCHandler.h"

#include <utility>

#include "Platform/RPCEvent.h"

namespace qbdkr {
namespace {

std::optional<AppleEventDescriptor> boundedObject(const RPCHandler::DirectObject& directObject) {
  auto object = directObject();
  if (object && !isWithinBounds(*object)) object.reset();
  return object;
}

}  // namespace

void RPCHandler::set(AppleEventTransport::EventHandler handler) {
  // The one before goes when the lock is released: what it held may come back here.
  const std::lock_guard lock(mutex_);
  handler_.swap(handler);
}

bool RPCHandler::isSet() const {
  const std::lock_guard lock(mutex_);
  return handler_ != nullptr;
}

AppleEventTransport::EventHandler RPCHandler::handler() const {
  const std::lock_guard lock(mutex_);
  return handler_;
}

OSErr RPCHandler::refusal(const DirectObject& directObject) const {
  if (!isSet()) return errAEEventNotHandled;
  return boundedObject(directObject) ? noErr : paramErr;
}

RPCHandler::Answer RPCHandler::handle(const DirectObject& directObject,
                                      const SenderOf& sender) const noexcept {
  try {
    const auto body = handler();
    if (!body) return {errAEEventNotHandled, {}};
    auto object = boundedObject(directObject);
    if (!object) return {paramErr, {}};
    AppleEvent event(kCoreEventClass, kAECall, {}, kAutoGenerateReturnID, kAnyTransactionID);
    event.setParamDescriptor(keyDirectObject, *std::move(object));
    auto [address, bundleID] = sender();
    if (address) event.setAttributeDescriptor(keyAddressAttr, *std::move(address));
    if (bundleID) event.setAttributeDescriptor(keySenderBundleIDAttr, *std::move(bundleID));
    AppleEvent reply;
    body(event, reply);
    const AppleEventDescriptor* result = reply.paramDescriptor(keyDirectObject);
    if (result == nullptr) return {};
    auto text = result->stringValue().value_or("");
    if (!isSendable(text) || text.size() > mostEventContent) return {errAEEventFailed, {}};
    return {noErr, std::move(text)};
  } catch (...) {
    return {errAEEventFailed, {}};
  }
}

}  // namespace qbdkr
