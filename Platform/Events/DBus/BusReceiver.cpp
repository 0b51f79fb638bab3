#include "Platform/Events/DBus/BusReceiver.h"

#include <time.h>

#include <algorithm>
#include <array>

#include <ClientComm/Bundle.h>
#include <ClientComm/Log.h>
#include <ClientComm/RunLoop.h>

#include "Platform/Base/DropExceptions.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Events/DBus/BusName.h"
#include "Platform/Loop/NativeLoopLinux.h"

namespace qbdkr {
namespace {

constexpr std::chrono::microseconds firstRetry = std::chrono::milliseconds(100);
constexpr std::chrono::microseconds longestRetry = std::chrono::seconds(5);
constexpr std::size_t mostSenders = 256;
constexpr std::size_t mostParkedEvents = 64;
constexpr std::size_t mostParkedBytes = std::size_t{2} << 20U;

bool readNames(sd_bus_message* message, RPCEvent& event, EventAllowance& allowance) {
  const char* className = nullptr;
  const char* methodName = nullptr;
  if (sd_bus_message_read(message, "ss", &className, &methodName) <= 0 ||
      !allowance.takeName(className) || !allowance.takeName(methodName)) {
    return false;
  }
  event.className = className;
  event.methodName = methodName;
  return true;
}

bool readArguments(sd_bus_message* message, RPCEvent& event, EventAllowance& allowance) {
  if (sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "s") <= 0) return false;
  const char* text = nullptr;
  int result = 0;
  while ((result = sd_bus_message_read_basic(message, SD_BUS_TYPE_STRING, &text)) > 0) {
    if (!allowance.takeArgument(text)) return false;
    event.arguments.emplace_back(text);
  }
  return result == 0;
}

void refuse(sd_bus_message* message, const char* error, const char* text) {
  sd_bus_reply_method_errorf(message, error, "%s", text);
}

// Answers a sender. The answer is dropped if the sender is gone, or waits for no answer.
void reply(sd_bus_message* message, const RPCTransport::Answer& answer) {
  switch (answer.status) {
    case noErr:
      sd_bus_reply_method_return(message, rpc::resultSignature,
                                 answer.result ? answer.result->c_str() : "");
      return;
    case errAEEventNotHandled:
      return refuse(message, SD_BUS_ERROR_UNKNOWN_METHOD, "no handler is installed");
    default:
      return refuse(message, SD_BUS_ERROR_FAILED, "the event could not be handled");
  }
}

}  // namespace

void ParkingSpace::take(std::size_t bytes) {
  ++events_;
  bytes_ += bytes;
}

void ParkingSpace::giveBack(std::size_t bytes) {
  --events_;
  bytes_ -= bytes;
}

bool ParkingSpace::isFull() const {
  return events_ >= mostParkedEvents || bytes_ >= mostParkedBytes;
}

const sd_bus_vtable BusReceiver::methods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_NAMES(rpc::callMember, rpc::callSignature,
                             SD_BUS_PARAM(class_name) SD_BUS_PARAM(method_name)
                                 SD_BUS_PARAM(arguments),
                             rpc::resultSignature, SD_BUS_PARAM(result), BusReceiver::onCall,
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

BusReceiver& BusReceiver::shared() {
  static NeverDestroyed receiver([] { return BusReceiver(); });
  return *receiver;
}

void BusReceiver::setHandler(RPCTransport::Handler handler) {
  handler_.set(std::move(handler));
  RunLoop::main().perform([this] { connect(); });
}

void BusReceiver::removeHandler() {
  handler_.set(nullptr);
  RunLoop::main().perform([this] { disconnect(); });
}

void BusReceiver::busAppeared() {
  RunLoop::main().perform([this] {
    if (retry_) connect();
  });
}

void BusReceiver::connect() {
  retry_.reset();
  if (bus_ || !handler_.isSet()) return;
  sd_bus* opened = nullptr;
  if (sd_bus_open_user(&opened) < 0) return tryAgainLater();
  bus_.reset(opened);
  if (inquiry_.open([this] { reconnectLater(); }) && attach()) return;
  disconnect();
  tryAgainLater();
}

bool BusReceiver::attach() {
  sd_bus* bus = bus_.get();
  sd_bus_slot* object = nullptr;
  if (sd_bus_set_method_call_timeout(bus, asMicroseconds(busPatience)) < 0 ||
      sd_bus_add_object_vtable(bus, &object, rpc::objectPath, rpc::interfaceName, methods, this) <
          0) {
    return false;
  }
  object_.reset(object);
  if (!watchDisconnection(bus, onDisconnected, this)) return false;
  const auto identifier = Bundle::main().infoString(kCFBundleIdentifierKey);
  const auto name = identifier ? busNameOfIdentifier(*identifier) : std::nullopt;
  // With this flag the bus queues this connection behind the owner that the name may have.
  if (name && sd_bus_request_name_async(bus, nullptr, name->c_str(), SD_BUS_NAME_QUEUE,
                                        onNameClaimed, this) < 0) {
    return false;
  }
  return sd_bus_attach_event(bus, mainEventLoop(), SD_EVENT_PRIORITY_NORMAL) >= 0;
}

void BusReceiver::disconnect() {
  retry_.reset();
  senders_.clear();
  parking_ = {};
  isPaused_ = false;
  inquiry_.close();
  object_.reset();
  if (bus_) sd_bus_detach_event(bus_.get());
  bus_.reset();
}

// Closes both connections, as neither is of use without the other. Does so later: no connection can
// be closed from inside its own callback.
void BusReceiver::reconnectLater() {
  RunLoop::main().perform([this] {
    disconnect();
    tryAgainLater();
  });
}

void BusReceiver::tryAgainLater() {
  retryDelay_ = std::clamp(retryDelay_ * 2, firstRetry, longestRetry);
  sd_event_source* made = nullptr;
  sd_event_add_time_relative(mainEventLoop(), &made, CLOCK_MONOTONIC, asMicroseconds(retryDelay_),
                             asMicroseconds(retryDelay_ / 10), onRetry, this);
  retry_.reset(made);
}

int BusReceiver::onRetry(sd_event_source*, std::uint64_t, void* self) {
  dropExceptions([&] { static_cast<BusReceiver*>(self)->connect(); });
  return 0;
}

int BusReceiver::onDisconnected(sd_bus_message*, void* self, sd_bus_error*) {
  dropExceptions([&] { static_cast<BusReceiver*>(self)->reconnectLater(); });
  return 0;
}

// Leaves further events on the bus.
void BusReceiver::pause() {
  if (isPaused_) return;
  isPaused_ = true;
  sd_bus_detach_event(bus_.get());
}

void BusReceiver::resume() {
  if (!isPaused_ || parking_.isFull()) return;
  isPaused_ = false;
  if (sd_bus_attach_event(bus_.get(), mainEventLoop(), SD_EVENT_PRIORITY_NORMAL) < 0)
    reconnectLater();
}

int BusReceiver::onNameClaimed(sd_bus_message* message, void* self, sd_bus_error*) {
  const sd_bus_error* error = sd_bus_message_get_error(message);
  if (error == nullptr) {
    static_cast<BusReceiver*>(self)->retryDelay_ = std::chrono::microseconds(0);
  } else if (sd_bus_error_has_name(error, SD_BUS_ERROR_ACCESS_DENIED) > 0) {
    dropExceptions([] { log("the bus does not let this application have its name"); });
  }
  return 0;
}

int BusReceiver::onCall(sd_bus_message* message, void* self, sd_bus_error*) {
  try {
    static_cast<BusReceiver*>(self)->receive(message);
  } catch (...) {  // nothing may unwind through the bus library
    refuse(message, SD_BUS_ERROR_FAILED, "the event could not be handled");
  }
  return 1;
}

void BusReceiver::receive(sd_bus_message* message) {
  // A refused event needs no inquiry and no room.
  if (!handler_.isSet()) return reply(message, {errAEEventNotHandled, {}});
  Received received{BusMessage(sd_bus_message_ref(message)), {}, 0};
  EventAllowance allowance;
  if (!readNames(message, received.event, allowance) ||
      !readArguments(message, received.event, allowance)) {
    return refuse(message, SD_BUS_ERROR_INVALID_ARGS, "not an RPC event");
  }
  received.size = allowance.used();

  const char* name = sd_bus_message_get_sender(message);
  if (name == nullptr) return handle(received, std::nullopt);
  const auto known = senders_.find(std::string_view(name));
  Sender* sender = known != senders_.end() ? &known->second : meet(name);
  if (sender == nullptr) return handle(received, std::nullopt);
  if (!sender->isReady()) return park(*sender, std::move(received));
  // Copied: while the event is handled, the loop may turn and forget the sender.
  const auto bundleID = sender->bundleID;
  handle(received, bundleID);
}

// Adds a new sender; null if the bus cannot be asked for it.
BusReceiver::Sender* BusReceiver::meet(const char* name) {
  if (senders_.size() >= mostSenders) forgetSenders();
  Sender sender;
  sender.question =
      inquiry_.ask(name, [this, peer = std::string(name)](std::optional<std::string> bundleID) {
        settle(peer, std::move(bundleID));
      });
  if (!sender.question) return nullptr;
  sender.watch = watch(name);
  return &senders_.emplace(name, std::move(sender)).first->second;
}

// Watches for the end of a name. The signal comes after the last event of the owner.
BusSlot BusReceiver::watch(const char* name) {
  sd_bus_slot* slot = nullptr;
  const auto ignore = [](sd_bus_message*, void*, sd_bus_error*) { return 0; };
  sd_bus_add_match_async(bus_.get(), &slot, bus::ownerMatch(name).c_str(), onSenderGone, ignore,
                         this);
  return BusSlot(slot);
}

void BusReceiver::park(Sender& sender, Received&& received) {
  const std::size_t size = received.size;
  sender.parked.push_back(std::move(received));
  parking_.take(size);
  if (parking_.isFull()) pause();
}

void BusReceiver::settle(std::string_view name, std::optional<std::string> bundleID) {
  const auto found = senders_.find(name);
  if (found == senders_.end()) return;
  RunLoop::main().perform([this, peer = std::string(name)] { handleParked(peer); });
  found->second.bundleID = std::move(bundleID);
  found->second.isKnown = true;
}

// Handles the first event of those parked for a sender; the loop's other work gets its turn before
// the next one.
void BusReceiver::handleParked(std::string_view name) {
  const auto found = senders_.find(name);
  if (found == senders_.end()) return;
  Sender& sender = found->second;
  if (!sender.isKnown || sender.parked.empty()) return;
  sender.question.reset();
  const Received received = std::move(sender.parked.front());
  sender.parked.pop_front();
  parking_.giveBack(received.size);
  const auto bundleID = sender.bundleID;
  if (!sender.parked.empty()) {
    RunLoop::main().perform([this, peer = found->first] { handleParked(peer); });
  } else if (sender.isGone) {
    senders_.erase(found);
  }
  resume();
  handle(received, bundleID);
}

void BusReceiver::handle(const Received& received, const std::optional<std::string>& sender) {
  const auto answer = handler_.handle(received.event, sender);
  reply(received.message.get(), answer);
  relief_.afterUseOf(received.size + (answer.result ? answer.result->size() : 0));
}

int BusReceiver::onSenderGone(sd_bus_message* message, void* self, sd_bus_error*) {
  auto& senders = static_cast<BusReceiver*>(self)->senders_;
  const char* name = nullptr;
  if (sd_bus_message_read(message, "s", &name) <= 0) return 0;
  const auto found = senders.find(std::string_view(name));
  if (found == senders.end()) return 0;
  found->second.isGone = true;
  if (found->second.isReady()) senders.erase(found);
  return 0;
}

void BusReceiver::forgetSenders() {
  std::erase_if(senders_, [](const auto& entry) { return entry.second.isReady(); });
}

}  // namespace qbdkr
