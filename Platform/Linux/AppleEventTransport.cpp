#include <pthread.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <string>

#include "Platform/AppleEvent.h"
#include "Platform/Linux/BusReceiver.h"
#include "Platform/Linux/BusSender.h"
#include "Platform/Log.h"
#include "Platform/RPCEvent.h"
#include "Platform/SerialNumber.h"

namespace qbdkr {
namespace {

constexpr std::uint64_t microsecondsPerTick = 1'000'000 / 60;
constexpr std::uint64_t busDefaultTimeout =
    25'000'000;  // microseconds; what every D-Bus binding has

std::uint64_t microseconds(long timeout) {
  if (timeout == kNoTimeOut) return UINT64_MAX;
  if (timeout < 0) return busDefaultTimeout;
  return static_cast<std::uint64_t>(timeout) * microsecondsPerTick;
}

class BusTransport final : public AppleEventTransport {
 public:
  OSErr sendMessage(const AppleEvent& event, AppleEvent& reply, std::int32_t sendMode,
                    long timeout) override {
    if (!isRPCEvent(event)) return paramErr;
    const std::string& target = event.target().data();
    if (target.empty()) return procNotFound;
    if (!isSendable(target)) return paramErr;
    const OSErr status = sendMode == kAENoReply ? sender().post(event) : ask(event, reply, timeout);
    logObstacleOnce();
    return status;
  }

  [[nodiscard]] std::optional<std::string> knownObstacle() const override {
    const BusSender* sender = sender_.load();
    const auto process = sender == nullptr ? std::nullopt : sender->foreignProcess();
    if (!process) return std::nullopt;
    return "the bus knows this process as " + std::to_string(*process) +
           ": behind a proxy, events may not arrive";
  }

  void setEventHandler(FourCharCode eventClass, FourCharCode eventID,
                       EventHandler handler) override {
    if (isRPCEvent(eventClass, eventID)) BusReceiver::shared().setHandler(std::move(handler));
  }

  void removeEventHandler(FourCharCode eventClass, FourCharCode eventID) override {
    if (isRPCEvent(eventClass, eventID)) BusReceiver::shared().removeHandler();
  }

  // In a child that was forked: the connection, its lock and the threads that wait on it belong to
  // the parent. The child gets its own on first use.
  void forgetParentsSender() { sender_.store(nullptr); }

 private:
  OSErr ask(const AppleEvent& event, AppleEvent& reply, long timeout) {
    std::string answer;
    const OSErr status = sender().call(event, microseconds(timeout), answer);
    if (status == noErr) {
      reply.setParamDescriptor(keyDirectObject,
                               AppleEventDescriptor::withString(std::move(answer)));
    }
    return status;
  }

  void logObstacleOnce() {
    if (!sender().foreignProcess() || isObstacleLogged_.exchange(true)) return;
    if (const auto obstacle = knownObstacle()) log(*obstacle);
  }

  BusSender& sender() {
    BusSender* current = sender_.load();
    if (current != nullptr) return *current;
    auto made = std::make_unique<BusSender>();
    if (sender_.compare_exchange_strong(current, made.get())) return *made.release();
    return *current;
  }

  std::atomic<bool> isObstacleLogged_{false};
  std::atomic<BusSender*> sender_{nullptr};  // never destroyed: threads send until the process ends
};

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
  return AppleEventDescriptor::withBytes(
      typeProcessSerialNumber, bytesOfSerialNumber({0, static_cast<std::uint32_t>(processID)}));
}

}  // namespace qbdkr
