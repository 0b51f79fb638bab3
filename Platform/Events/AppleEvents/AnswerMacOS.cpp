#include "Platform/Events/AppleEvents/AnswerMacOS.h"

#include <cstdint>
#include <utility>

#include "Platform/Events/AppleEvents/EventDescriptorMacOS.h"
#include "Platform/Events/RPCEvent.h"

namespace qbdkr {

namespace {

// Returns the error in a reply; 0 without one.
std::int32_t errorOf(const AEDesc& reply) {
  EventDescriptor found;
  std::int32_t error = 0;
  if (AEGetParamDesc(&reply, keyErrorNumber, typeSInt32, found.receive()) != noErr ||
      AEGetDescData(found.get(), &error, sizeof error) != noErr) {
    return noErr;
  }
  return error;
}

// A handler that failed is an event that was not handled, as on the bus; so is an error that is no
// status.
OSErr statusOf(std::int32_t error) {
  const auto status = static_cast<OSErr>(error);
  return status != error || status == errAEEventFailed ? errAEEventNotHandled : status;
}

}  // namespace

RPCTransport::Answer readAnswer(const AEDesc& reply) {
  if (const auto error = errorOf(reply); error != noErr) return {statusOf(error), {}};
  EventDescriptor found;
  if (AEGetParamDesc(&reply, keyDirectObject, typeWildCard, found.receive()) != noErr) return {};
  if (AEGetDescDataSize(found.get()) > static_cast<Size>(mostTextBytes)) {
    return {errAEEventNotHandled, {}};
  }
  auto text = textFrom(*found.get());
  if (text && text->size() > mostEventContent) return {errAEEventNotHandled, {}};
  return {noErr, std::move(text)};
}

AEReturnID returnIDOf(const AEDesc& event) {
  EventDescriptor found;
  AEReturnID identifier = 0;
  if (AEGetAttributeDesc(&event, keyReturnIDAttr, typeSInt16, found.receive()) != noErr ||
      AEGetDescData(found.get(), &identifier, sizeof identifier) != noErr) {
    return 0;
  }
  return identifier;
}

}  // namespace qbdkr
