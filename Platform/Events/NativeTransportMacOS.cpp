#include <CoreServices/CoreServices.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <ratio>
#include <set>
#include <string>
#include <utility>

#include <ClientComm/LogHandler.h>

#include "Platform/Base/DetachedThread.h"
#include "Platform/Base/DropExceptions.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Events/AppleEvents/AnswerMacOS.h"
#include "Platform/Events/AppleEvents/EventDescriptorMacOS.h"
#include "Platform/Events/AppleEvents/RPCAppleEvent.h"
#include "Platform/Events/AppleEvents/ReplyPortMacOS.h"
#include "Platform/Events/AppleEvents/StartedRequestsMacOS.h"
#include "Platform/Events/AwaitedAnswer.h"
#include "Platform/Events/CancellationState.h"
#include "Platform/Events/NativeTransport.h"
#include "Platform/Events/RPCHandler.h"
#include "Platform/Events/RPCTransport.h"
#include "Platform/Loop/MainThread.h"
#include "Platform/Processes/ProcessTable.h"
#include "Platform/Processes/RunningApplications.h"

namespace qbdkr {
namespace {

using Clock = std::chrono::steady_clock;

// Keeps the standing of a process that ends by itself. Nothing tells when a sender ends, so the
// running applications are asked for the senders' identifiers. Main thread only.
class Presence {
 public:
  void watch() { isWatched_ = true; }

  void noteEventOf(const std::optional<std::string>& sender) {
    if (!isWatched_) return;
    last_ = Clock::now();
    if (!sender) return;
    if (senders_.size() < mostSenders) {
      senders_.insert(*sender);
    } else {
      isCrowded_ = isCrowded_ || !senders_.contains(*sender);
    }
  }

  std::optional<Clock::time_point> idleSince() {
    if (!isWatched_ || isCrowded_) return std::nullopt;
    const auto processes = fetchProcessIDs();
    const bool isHostThere = !processes || std::ranges::any_of(senders_, [&](const auto& id) {
      return isApplicationRunning(id, *processes);
    });
    if (!isHostThere) return last_;
    last_ = Clock::now();
    return std::nullopt;
  }

 private:
  static constexpr std::size_t mostSenders = 256;

  bool isWatched_ = false;
  Clock::time_point last_ = Clock::now();
  std::set<std::string> senders_;  // identifiers
  bool isCrowded_ = false;
};

// An installed handler, and its senders.
struct Receiver {
  RPCHandler handler;
  Presence presence;
};

// Makes the system's event from ours.
OSErr makeEvent(const AppleEvent& from, EventDescriptor& made) {
  const AppleEventDescriptor& to = from.target();
  // An address is not text: its bytes go unchanged. The Apple Event Manager refuses an unknown one.
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

// Makes our event from the system's, as far as an RPC event needs it. False if it exceeds the
// bounds.
bool readEvent(const AEDesc& from, AppleEvent& event) {
  EventDescriptor object;
  if (AEGetParamDesc(&from, keyDirectObject, typeWildCard, object.receive()) == noErr) {
    auto read = rpcObjectFrom(*object.get());
    if (!read) return false;
    event.setParamDescriptor(keyDirectObject, *std::move(read));
  }
  // Takes the sender's process, if the system can tell it.
  EventDescriptor address;
  if (AEGetAttributeDesc(&from, keyAddressAttr, typeProcessSerialNumber, address.receive()) ==
      noErr) {
    if (auto read = plainDescriptor(*address.get())) {
      event.setAttributeDescriptor(keyAddressAttr, *std::move(read));
    }
  }
  return true;
}

// A sender that waits for no reply gives a null descriptor.
OSErr putResult(std::string result, AEDesc& reply) {
  if (result.empty() || reply.descriptorType == typeNull) return noErr;
  EventDescriptor value;
  const auto text = AppleEventDescriptor::withString(std::move(result));
  if (const OSErr status = makeDescriptor(text, value); status != noErr) return status;
  return AEPutParamDesc(&reply, keyDirectObject, value.get());
}

// Returns the time until a deadline as the Apple Event Manager takes it, rounded up: its clock has
// 60 ticks in a second.
long ticksUntil(RequestLimits::Clock::time_point deadline) {
  using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 60>>;
  if (deadline == RequestLimits::Clock::time_point::max()) return kNoTimeOut;
  const auto ticks = std::chrono::ceil<Ticks>(deadline - RequestLimits::Clock::now()).count();
  return static_cast<long>(std::clamp<std::int64_t>(ticks, 1, INT32_MAX));
}

OSErr handleEvent(const AEDesc& incoming, AEDesc& reply, Receiver& receiver) {
  if (!receiver.handler.isSet()) return errAEEventNotHandled;
  AppleEvent event;
  if (!readEvent(incoming, event)) return paramErr;
  const auto read = rpcEventOf(event);
  if (!read) return errAEEventFailed;
  const auto sender = senderOf(event);
  receiver.presence.noteEventOf(sender);
  auto answer = receiver.handler.handle(*read, sender);
  if (answer.status != noErr) return answer.status;
  return putResult(std::move(answer.result).value_or(""), reply);
}

::OSErr onEvent(const ::AppleEvent* incoming, ::AppleEvent* reply, SRefCon receiver) {
  try {
    return handleEvent(*incoming, *reply, *static_cast<Receiver*>(receiver));
  } catch (...) {  // nothing may unwind through the Apple Event Manager
    return errAEEventFailed;
  }
}

// An event lies at the target's port when AESendMessage returns, with the sender's address in it.
// So flush() has nothing to wait for here. No connection can be lost either, so no loss is ever
// told.
class AppleEventTransport final : public RPCTransport {
 public:
  OSErr post(const RPCTarget& target, const RPCEvent& event) override {
    started_.awaitSent();
    EventDescriptor reply;
    return send(target, event, postOptions, reply);
  }

  Answer ask(const RPCTarget& target, const RPCEvent& event) override {
    started_.awaitSent();
    return waitForAnswer(target, event, askOptions);
  }

  bool start(const RPCTarget& target, RPCEvent event, const RequestLimits& limits,
             Completion completion) override {
    return started_.start(target, std::move(event), limits, std::move(completion));
  }

  // Does not need the main run loop, to which the replies of started requests come: this may be its
  // thread. A wait in the Apple Event Manager ends at its time-out, but no other thread can end it.
  // One that can be cancelled is therefore left to a thread of its own.
  Answer askWithin(const RequestLimits& limits, const RPCTarget& target,
                   const RPCEvent& event) override {
    started_.awaitSent();
    if (limits.cancellation && limits.cancellation->isCancelled()) return {userCanceledErr, {}};
    if (limits.deadline <= RequestLimits::Clock::now()) return {errAETimeout, {}};
    if (!limits.cancellation) {
      return waitForAnswer(target, event, {kAEWaitReply, ticksUntil(limits.deadline)});
    }
    const auto awaited = std::make_shared<AwaitedAnswer>();
    auto* cancellation = CancellationState::of(*limits.cancellation);
    const auto ticket = cancellation == nullptr ? 0 : cancellation->add(awaited);
    if (cancellation != nullptr && ticket == 0) return {userCanceledErr, {}};
    const bool waits = detachNewThread([this, awaited, target, event, limits] {
      Answer answer{paramErr, {}};  // if memory runs out
      dropExceptions([&] {
        answer = waitForAnswer(target, event, {kAEWaitReply, ticksUntil(limits.deadline)});
      });
      awaited->set(std::move(answer));
    });
    auto answer = waits ? awaited->get() : Answer{paramErr, {}};
    if (cancellation != nullptr) cancellation->remove(ticket);
    return answer;
  }

  void setHandler(Handler handler) override {
    receiver_.handler.set(std::move(handler));
    if (AEInstallEventHandler(kCoreEventClass, kAECall, entryPoint(), &receiver_, 0) != ::noErr) {
      log(LogLevel::error, LogCategory::bus,
          "the system does not let this application handle Apple events", {});
    }
  }

  void removeHandler() override {
    AERemoveEventHandler(kCoreEventClass, kAECall, entryPoint(), 0);
    receiver_.handler.set(nullptr);
  }

  void watchStanding(const std::function<void()>& /*onLost*/) override {
    receiver_.presence.watch();
  }
  [[nodiscard]] Standing standing() override { return {receiver_.presence.idleSince(), {}}; }

 private:
  Answer waitForAnswer(const RPCTarget& target, const RPCEvent& event,
                       const AppleEventSendOptions& options) {
    EventDescriptor reply;
    const OSErr status = send(target, event, options, reply);
    if (status != noErr) return {status, {}};
    return readAnswer(*reply.get());
  }

  OSErr makeMessage(const RPCTarget& target, const RPCEvent& event, EventDescriptor& message) {
    if (!isSendable(event) || target.bundleID.find('\0') != std::string::npos) return paramErr;
    // The system chooses the process that an identifier stands for.
    if (target.directory && !isPlaceLogged_.exchange(true)) {
      log(LogLevel::error, LogCategory::bus,
          "on this system the helper agent need not be the installed copy", {});
    }
    return makeEvent(appleEventOf(target, event), message);
  }

  OSErr send(const RPCTarget& target, const RPCEvent& event, const AppleEventSendOptions& options,
             EventDescriptor& reply) {
    EventDescriptor message;
    const OSErr made = makeMessage(target, event, message);
    if (made != noErr) return made;
    if (options.mode == kAEWaitReply && !isOnMainThread()) return exchange(message, options, reply);
    return deliver(message, options, reply);
  }

  static OSErr deliver(EventDescriptor& message, const AppleEventSendOptions& options,
                       EventDescriptor& reply) {
    return static_cast<OSErr>(
        AESendMessage(message.get(), reply.receive(), options.mode, options.timeout));
  }

  // Waits for the reply beside the main thread.
  static OSErr exchange(EventDescriptor& message, const AppleEventSendOptions& options,
                        EventDescriptor& reply) {
    ReplyPort& port = ReplyPort::ofThisThread();
    if (const OSErr named = port.nameIn(*message.receive()); named != noErr) return named;
    const OSErr status = deliver(message, options, reply);
    if (status == errAETimeout) port.giveUp();
    return status;
  }

  static AEEventHandlerUPP entryPoint() {
    static const AEEventHandlerUPP entry = NewAEEventHandlerUPP(onEvent);
    return entry;
  }

  std::atomic<bool> isPlaceLogged_{false};
  StartedRequests started_{
      [this](const RPCTarget& target, const RPCEvent& event, EventDescriptor& message) {
        return makeMessage(target, event, message);
      }};
  Receiver receiver_;  // never destroyed: the Apple Event Manager holds its address
};

}  // namespace

RPCTransport& nativeTransport() {
  static NeverDestroyed transport([] { return AppleEventTransport(); });
  return *transport;
}

}  // namespace qbdkr
