#include <CoreServices/CoreServices.h>

#include <atomic>
#include <utility>

#include "Platform/AppleEvent.h"
#include "Platform/Log.h"
#include "Platform/RPCEvent.h"
#include "Platform/RPCHandler.h"
#include "Platform/macOS/EventDescriptor.h"

namespace qbdkr {
namespace {

OSErr makeEvent(const AppleEvent& from, EventDescriptor& made) {
  const AppleEventDescriptor& to = from.target();
  // An address is no text: its bytes go as they are, and as many as there are. What names nobody is
  // the Apple Event Manager's to refuse.
  EventDescriptor target;
  OSErr status = AECreateDesc(to.descriptorType(), to.data().data(),
                              static_cast<Size>(to.data().size()), target.receive());
  if (status != noErr) return status;
  status = AECreateAppleEvent(from.eventClass(), from.eventID(), target.get(), from.returnID(),
                              from.transactionID(), made.receive());
  if (status != noErr) return status;
  EventDescriptor value;
  status = makeDescriptor(*from.paramDescriptor(keyDirectObject), value);
  if (status != noErr) return status;
  return AEPutParamDesc(made.receive(), keyDirectObject, value.get());
}

// The sender as the process that it is; absent when the system cannot tell.
std::optional<AppleEventDescriptor> addressOf(const AEDesc& event) {
  EventDescriptor found;
  if (AEGetAttributeDesc(&event, keyAddressAttr, typeProcessSerialNumber, found.receive()) !=
      noErr) {
    return std::nullopt;
  }
  return plainDescriptor(*found.get());
}

std::optional<AppleEventDescriptor> directObjectOf(const AEDesc& event) {
  EventDescriptor found;
  if (AEGetParamDesc(&event, keyDirectObject, typeWildCard, found.receive()) != noErr) {
    return AppleEventDescriptor();
  }
  return rpcObjectFrom(*found.get());
}

// A sender that waits for no reply gives a null descriptor to put it into.
OSErr putResult(std::string result, AEDesc& reply) {
  if (result.empty() || reply.descriptorType == typeNull) return noErr;
  EventDescriptor value;
  const auto text = AppleEventDescriptor::withString(std::move(result));
  if (const OSErr status = makeDescriptor(text, value); status != noErr) return status;
  return AEPutParamDesc(&reply, keyDirectObject, value.get());
}

// A reply without a text is an empty one; a text beyond what an event may carry breaks the
// contract.
OSErr readResult(const AEDesc& reply, AppleEvent& result) {
  EventDescriptor found;
  if (AEGetParamDesc(&reply, keyDirectObject, typeWildCard, found.receive()) != noErr) return noErr;
  EventDescriptor utf8;
  if (AECoerceDesc(found.get(), typeUTF8Text, utf8.receive()) == noErr &&
      AEGetDescDataSize(utf8.get()) > static_cast<Size>(mostEventContent)) {
    return errAEEventNotHandled;
  }
  if (auto text = textFrom(*found.get())) {
    result.setParamDescriptor(keyDirectObject, AppleEventDescriptor::withString(*std::move(text)));
  }
  return noErr;
}

::OSErr onEvent(const ::AppleEvent* incoming, ::AppleEvent* reply, SRefCon handler) {
  try {
    auto answer = static_cast<RPCHandler*>(handler)->handle(
        [incoming] { return directObjectOf(*incoming); },
        [incoming] {
          return RPCHandler::Sender{addressOf(*incoming), std::nullopt};
        });
    return answer.status == noErr ? putResult(std::move(answer.result), *reply) : answer.status;
  } catch (...) {  // nothing may unwind through the Apple Event Manager
    return errAEEventFailed;
  }
}

class ManagerTransport final : public AppleEventTransport {
 public:
  OSErr sendMessage(const AppleEvent& event, AppleEvent& reply, std::int32_t sendMode,
                    long timeout) override {
    if (!isRPCEvent(event)) return paramErr;
    // The system chooses the process that an identifier stands for.
    if (event.targetDirectory() && !isPlaceLogged_.exchange(true)) {
      log("on this system the helper agent need not be the installed copy");
    }
    EventDescriptor message;
    if (const OSErr status = makeEvent(event, message); status != noErr) return status;
    EventDescriptor answer;
    const OSStatus status = AESendMessage(message.get(), answer.receive(), sendMode, timeout);
    if (status != ::noErr) return static_cast<OSErr>(status);
    return readResult(*answer.get(), reply);
  }

  void setEventHandler(FourCharCode eventClass, FourCharCode eventID,
                       EventHandler handler) override {
    if (!isRPCEvent(eventClass, eventID)) return;
    handler_.set(std::move(handler));
    if (AEInstallEventHandler(eventClass, eventID, entryPoint(), &handler_, 0) != ::noErr) {
      log("the system does not let this application handle Apple events");
    }
  }

  void removeEventHandler(FourCharCode eventClass, FourCharCode eventID) override {
    if (!isRPCEvent(eventClass, eventID)) return;
    AERemoveEventHandler(eventClass, eventID, entryPoint(), 0);
    handler_.set(nullptr);
  }

 private:
  static AEEventHandlerUPP entryPoint() {
    static const AEEventHandlerUPP entry = NewAEEventHandlerUPP(onEvent);
    return entry;
  }

  std::atomic<bool> isPlaceLogged_{false};
  RPCHandler handler_;  // never destroyed: the Apple Event Manager holds its address
};

}  // namespace

AppleEventTransport& platformAppleEventTransport() {
  static auto& transport = *new ManagerTransport;
  return transport;
}

std::optional<AppleEventDescriptor> platformCoercion(const AppleEventDescriptor& from,
                                                     FourCharCode type) {
  EventDescriptor value;
  EventDescriptor coerced;
  if (makeDescriptor(from, value) != noErr ||
      AECoerceDesc(value.get(), type, coerced.receive()) != noErr) {
    return std::nullopt;
  }
  if (type != typeUnicodeText) return plainDescriptor(*coerced.get());
  auto text = textFrom(*coerced.get());
  if (!text) return std::nullopt;
  return AppleEventDescriptor::withString(*std::move(text));
}

}  // namespace qbdkr
