#include <pthread.h>

#include <atomic>
#include <cstring>
#include <memory>

#include "Platform/AppleEvent.h"
#include "Platform/Linux/BusReceiver.h"
#include "Platform/Linux/BusSender.h"
#include "Platform/SendableText.h"

namespace qbdkr {
namespace {

constexpr std::uint64_t microsecondsPerTick = 1'000'000 / 60;
constexpr std::uint64_t busDefaultTimeout =
    25'000'000;  // microseconds; what every D-Bus binding has

constexpr std::size_t longestArray = 64 << 20U;  // bytes of the list of arguments, in D-Bus's form
constexpr std::size_t perText = 8;               // its length, its end and padding, at most
constexpr std::size_t longestName = 1 << 20U;

std::uint64_t microseconds(long timeout) {
  if (timeout == kNoTimeOut) return UINT64_MAX;
  if (timeout < 0) return busDefaultTimeout;
  return static_cast<std::uint64_t>(timeout) * microsecondsPerTick;
}

bool isSendableText(const AppleEventDescriptor* item) {
  return item != nullptr && item->descriptorType() == typeUnicodeText && isSendable(item->data());
}

// A class name, a method name and a list of texts: all that the bus carries.
bool isRPCEvent(const AppleEventDescriptor* directObject) {
  if (directObject == nullptr || directObject->numberOfItems() != 3 ||
      !isSendableText(directObject->descriptorAtIndex(1)) ||
      !isSendableText(directObject->descriptorAtIndex(2))) {
    return false;
  }
  const AppleEventDescriptor& arguments = *directObject->descriptorAtIndex(3);
  if (arguments.descriptorType() != typeAEList) return false;
  std::size_t size = 0;
  for (std::size_t i = 1; i <= arguments.numberOfItems(); ++i) {
    const AppleEventDescriptor* argument = arguments.descriptorAtIndex(i);
    if (!isSendableText(argument)) return false;
    size += argument->data().size() + perText;
  }
  // The bus ends the connection of a sender of more, and with it what others wait for.
  return size <= longestArray && directObject->descriptorAtIndex(1)->data().size() <= longestName &&
         directObject->descriptorAtIndex(2)->data().size() <= longestName;
}

class BusTransport final : public AppleEventTransport {
 public:
  OSErr sendMessage(const AppleEvent& event, AppleEvent& reply, std::int32_t sendMode,
                    long timeout) override {
    const AppleEventDescriptor& target = event.target();
    const AppleEventDescriptor* directObject = event.paramDescriptor(keyDirectObject);
    if (target.descriptorType() != typeApplicationBundleID || !isRPCEvent(directObject)) {
      return paramErr;
    }
    if (target.data().empty()) return procNotFound;
    if (!isSendable(target.data())) return paramErr;
    if (sendMode == kAENoReply) return sender().post(target.data(), *directObject);

    std::string answer;
    const OSErr status = sender().call(target.data(), *directObject, microseconds(timeout), answer);
    // The bus has no other way to say "no result" than the empty text.
    if (status == noErr && !answer.empty()) {
      reply.setParamDescriptor(keyDirectObject,
                               AppleEventDescriptor::withString(std::move(answer)));
    }
    return status;
  }

  void setEventHandler(FourCharCode eventClass, FourCharCode eventID,
                       EventHandler handler) override {
    if (carries(eventClass, eventID)) BusReceiver::shared().setHandler(std::move(handler));
  }

  void removeEventHandler(FourCharCode eventClass, FourCharCode eventID) override {
    if (carries(eventClass, eventID)) BusReceiver::shared().removeHandler();
  }

  // In a child that was forked: the connection, its lock and the threads that wait on it belong to
  // the parent. The child gets its own on first use.
  void forgetParentsSender() { sender_.store(nullptr); }

 private:
  // RPC events are the only ones on the bus.
  static bool carries(FourCharCode eventClass, FourCharCode eventID) {
    return eventClass == kCoreEventClass && eventID == kAECall;
  }

  BusSender& sender() {
    BusSender* current = sender_.load();
    if (current != nullptr) return *current;
    auto made = std::make_unique<BusSender>();
    if (sender_.compare_exchange_strong(current, made.get())) return *made.release();
    return *current;
  }

  std::atomic<BusSender*> sender_{nullptr};  // never destroyed: threads send until the process ends
};

void appendBigEndian(std::string& bytes, std::uint32_t word) {
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(word >> shift & 0xFFU);
}

}  // namespace

AppleEventTransport& platformAppleEventTransport() {
  static auto* const transport = new BusTransport;
  static const int watched =
      pthread_atfork(nullptr, nullptr, [] { transport->forgetParentsSender(); });
  static_cast<void>(watched);
  return *transport;
}

// The serial number of a process is its id behind a zero word.
std::optional<AppleEventDescriptor> platformCoercion(const AppleEventDescriptor& from,
                                                     FourCharCode type) {
  std::int32_t processID = 0;
  if (type != typeProcessSerialNumber || from.descriptorType() != typeKernelProcessID ||
      from.data().size() != sizeof processID) {
    return std::nullopt;
  }
  std::memcpy(&processID, from.data().data(), sizeof processID);
  std::string bytes;
  appendBigEndian(bytes, 0);
  appendBigEndian(bytes, static_cast<std::uint32_t>(processID));
  return AppleEventDescriptor::withBytes(typeProcessSerialNumber, std::move(bytes));
}

}  // namespace qbdkr
