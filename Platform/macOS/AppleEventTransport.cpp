#include <CoreServices/CoreServices.h>

#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "Platform/AppleEvent.h"
#include "Platform/Log.h"
#include "Platform/RPCEvent.h"
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

// The null descriptor, when there was no answer, has no parameters.
void takeDirectObject(const AEDesc& from, AppleEvent& to) {
  EventDescriptor found;
  if (AEGetParamDesc(&from, keyDirectObject, typeWildCard, found.receive()) != noErr) return;
  auto value = textualDescriptor(*found.get());
  if (value) to.setParamDescriptor(keyDirectObject, std::move(*value));
}

// The sender as the process that it is; left out when the system cannot tell.
void takeAddress(const AEDesc& from, AppleEvent& to) {
  EventDescriptor found;
  if (AEGetAttributeDesc(&from, keyAddressAttr, typeProcessSerialNumber, found.receive()) !=
      noErr) {
    return;
  }
  auto value = plainDescriptor(*found.get());
  if (value) to.setAttributeDescriptor(keyAddressAttr, std::move(*value));
}

// A sender that waits for no reply gives a null descriptor to put it into.
OSErr putReply(const AppleEvent& from, AEDesc& to) {
  const AppleEventDescriptor* result = from.paramDescriptor(keyDirectObject);
  if (result == nullptr || to.descriptorType == typeNull) return noErr;
  EventDescriptor value;
  const OSErr status = makeDescriptor(*result, value);
  if (status != noErr) return status;
  return AEPutParamDesc(&to, keyDirectObject, value.get());
}

// The handler of one kind of event. Never destroyed: the Apple Event Manager holds its address.
class Handler {
 public:
  Handler(FourCharCode eventClass, FourCharCode eventID)
      : eventClass_(eventClass), eventID_(eventID) {}

  void set(AppleEventTransport::EventHandler body) {
    const std::lock_guard lock(mutex_);
    body_ = std::move(body);
  }

  OSErr handle(const AEDesc& incoming, AEDesc& reply) {
    AppleEventTransport::EventHandler body;
    {
      const std::lock_guard lock(mutex_);
      body = body_;
    }
    if (!body) return errAEEventNotHandled;
    AppleEvent event(eventClass_, eventID_, {}, kAutoGenerateReturnID, kAnyTransactionID);
    takeDirectObject(incoming, event);
    takeAddress(incoming, event);
    AppleEvent answer;
    body(event, answer);
    return putReply(answer, reply);
  }

 private:
  const FourCharCode eventClass_;
  const FourCharCode eventID_;
  std::mutex mutex_;
  AppleEventTransport::EventHandler body_;
};

::OSErr onEvent(const ::AppleEvent* incoming, ::AppleEvent* reply, SRefCon handler) {
  try {
    return static_cast<Handler*>(handler)->handle(*incoming, *reply);
  } catch (...) {  // nothing may unwind through the Apple Event Manager
    return errAEEventFailed;
  }
}

class ManagerTransport final : public AppleEventTransport {
 public:
  OSErr sendMessage(const AppleEvent& event, AppleEvent& reply, std::int32_t sendMode,
                    long timeout) override {
    if (!isRPCEvent(event)) return paramErr;
    EventDescriptor message;
    if (const OSErr status = makeEvent(event, message); status != noErr) return status;
    EventDescriptor answer;
    const OSStatus status = AESendMessage(message.get(), answer.receive(), sendMode, timeout);
    if (status == ::noErr) takeDirectObject(*answer.get(), reply);
    return static_cast<OSErr>(status);
  }

  void setEventHandler(FourCharCode eventClass, FourCharCode eventID, EventHandler body) override {
    Handler& handler = handlerOf(eventClass, eventID);
    handler.set(std::move(body));
    if (AEInstallEventHandler(eventClass, eventID, entryPoint(), &handler, 0) != noErr) {
      log("the system does not let this application handle Apple events");
    }
  }

  void removeEventHandler(FourCharCode eventClass, FourCharCode eventID) override {
    AERemoveEventHandler(eventClass, eventID, entryPoint(), 0);
    handlerOf(eventClass, eventID).set(nullptr);
  }

 private:
  static AEEventHandlerUPP entryPoint() {
    static const AEEventHandlerUPP entry = NewAEEventHandlerUPP(onEvent);
    return entry;
  }

  Handler& handlerOf(FourCharCode eventClass, FourCharCode eventID) {
    const std::lock_guard lock(mutex_);
    auto& handler = handlers_[{eventClass, eventID}];
    if (!handler) handler = std::make_unique<Handler>(eventClass, eventID);
    return *handler;
  }

  std::mutex mutex_;
  std::map<std::pair<FourCharCode, FourCharCode>, std::unique_ptr<Handler>> handlers_;
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
  return type == typeUnicodeText ? textualDescriptor(*coerced.get())
                                 : plainDescriptor(*coerced.get());
}

}  // namespace qbdkr
