#include "Platform/Events/AppleEvents/AnswerMacOS.h"

#include <cstdint>

#include "Platform/Events/AppleEvents/EventDescriptorMacOS.h"
#include "Platform/Events/RPCEvent.h"

namespace qbdkr {

RPCTransport::Answer readAnswer(const AEDesc& reply) {
  EventDescriptor found;
  if (AEGetParamDesc(&reply, keyDirectObject, typeWildCard, found.receive()) != noErr) return {};
  EventDescriptor utf8;
  if (AECoerceDesc(found.get(), typeUTF8Text, utf8.receive()) == noErr &&
      AEGetDescDataSize(utf8.get()) > static_cast<Size>(mostEventContent)) {
    return {errAEEventNotHandled, {}};
  }
  return {noErr, textFrom(*found.get())};
}

RPCTransport::Answer readQueuedAnswer(const AEDesc& reply) {
  EventDescriptor error;
  std::int32_t status = 0;
  if (AEGetParamDesc(&reply, keyErrorNumber, typeSInt32, error.receive()) == noErr &&
      AEGetDescData(error.get(), &status, sizeof status) == noErr && status != 0) {
    return {static_cast<OSErr>(status), {}};
  }
  return readAnswer(reply);
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
