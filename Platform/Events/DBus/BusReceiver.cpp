#include "Platform/Events/DBus/BusReceiver.h"

#include <time.h>

#include <algorithm>
#include <utility>

#include <ClientComm/RunLoop.h>

#include "Platform/Base/DropExceptions.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Events/DBus/SessionBus.h"
#include "Platform/Loop/MainThread.h"
#include "Platform/Loop/NativeLoopLinux.h"

namespace qbdkr {
namespace {

constexpr std::chrono::microseconds firstRetry = std::chrono::milliseconds(100);
constexpr std::chrono::microseconds longestRetry = std::chrono::seconds(5);
constexpr std::size_t mostSenders = 256;
constexpr std::size_t mostForgotten = 4096;
constexpr std::size_t mostNewcomers = 32;
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

const sd_bus_vtable BusReceiver::deliveryMethods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD(rpc::flushMember, "", "", BusReceiver::onQuestion, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

const sd_bus_vtable BusReceiver::identityMethods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_NAMES(rpc::introduceMember, rpc::introduceSignature, SD_BUS_PARAM(socket),
                             "", , BusReceiver::onIntroduction,
                             SD_BUS_VTABLE_UNPRIVILEGED | SD_BUS_VTABLE_METHOD_NO_REPLY),
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

void BusReceiver::awaitName(Clock::time_point deadline) {
  if (!handler_.isSet() || (isOnMainThread() && bus_)) return;
  claim_.await(deadline, [this] { RunLoop::main().perform([this] { connect(); }); });
}

void BusReceiver::busAppeared() {
  RunLoop::main().perform([this] {
    if (retry_) connect();
  });
}

void BusReceiver::connect() {
  retry_.reset();
  if (bus_) return;
  if (!handler_.isSet()) {
    claim_.close();
    return;
  }
  auto claimed = claim_.take();
  if (!claimed) return tryAgainLater();  // or when the thread that opens it has done so
  bus_ = *std::move(claimed);
  if (bus_ && inquiry_.open([this] { reconnectLater(); }) && attach()) return;
  disconnect();
  tryAgainLater();
}

bool BusReceiver::attach() {
  sd_bus* bus = bus_.get();
  sd_bus_slot* object = nullptr;
  sd_bus_slot* delivery = nullptr;
  sd_bus_slot* identity = nullptr;
  if (sd_bus_add_object_vtable(bus, &object, rpc::objectPath, rpc::interfaceName, methods, this) <
      0) {
    return false;
  }
  object_.reset(object);
  if (sd_bus_add_object_vtable(bus, &delivery, rpc::objectPath, rpc::deliveryInterface,
                               deliveryMethods, this) < 0) {
    return false;
  }
  delivery_.reset(delivery);
  if (sd_bus_add_object_vtable(bus, &identity, rpc::objectPath, rpc::identityInterface,
                               identityMethods, this) < 0) {
    return false;
  }
  identity_.reset(identity);
  isBehindProxy_ = leadsToProxy(bus);
  if (!diagnosis_.attach(bus)) return false;
  if (!watchDisconnection(bus, onDisconnected, this)) return false;
  return sd_bus_attach_event(bus, mainEventLoop(), SD_EVENT_PRIORITY_NORMAL) >= 0;
}

void BusReceiver::disconnect() {
  retry_.reset();
  senders_.clear();
  forgotten_.clear();
  forgottenWatch_.reset();
  isCrowded_ = false;
  parking_ = {};
  isPaused_ = false;
  inquiry_.close();
  allRead_.reset();
  diagnosis_.detach();
  identity_.reset();
  delivery_.reset();
  object_.reset();
  if (bus_) {
    sd_bus_detach_event(bus_.get());
    lastPresence_ = Clock::now();
    lostSince_ = lastPresence_;
  }
  bus_.reset();
  if (claim_.close()) retryDelay_ = std::chrono::microseconds(0);
  if (onHandled_) RunLoop::main().perform(std::exchange(onHandled_, nullptr));
}

// Closes both connections, as neither is of use without the other. Does so later: no connection can
// be closed from inside its own callback.
void BusReceiver::reconnectLater() {
  RunLoop::main().perform([this] {
    disconnect();
    tryAgainLater();
    if (onLost_) onLost_();
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

int BusReceiver::onQuestion(sd_bus_message* message, void* self, sd_bus_error*) {
  try {
    static_cast<BusReceiver*>(self)->receiveQuestion(message);
  } catch (...) {  // nothing may unwind through the bus library
    refuse(message, SD_BUS_ERROR_FAILED, "the events before were not taken");
  }
  return 1;
}

int BusReceiver::onIntroduction(sd_bus_message* message, void* self, sd_bus_error*) {
  dropExceptions([&] { static_cast<BusReceiver*>(self)->receiveIntroduction(message); });
  return 1;
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
  RPCEvent event;
  EventAllowance allowance;
  if (!readNames(message, event, allowance) || !readArguments(message, event, allowance)) {
    return refuse(message, SD_BUS_ERROR_INVALID_ARGS, "not an RPC event");
  }
  take({BusMessage(sd_bus_message_ref(message)), std::move(event), allowance.used()});
}

// The question is answered in its turn among the events of its sender: they come to their handler
// before it, and so only when the sender is known.
void BusReceiver::receiveQuestion(sd_bus_message* message) {
  if (!handler_.isSet()) return reply(message, {errAEEventNotHandled, {}});
  take({BusMessage(sd_bus_message_ref(message)), std::nullopt, 0});
}

// Takes an introduction before the first event of its sender, or after one that was on its way
// while the name got this owner. Ignores it without a proxy: the bus tells the process then.
void BusReceiver::receiveIntroduction(sd_bus_message* message) {
  if (!handler_.isSet() || !isBehindProxy_ || newcomers() >= mostNewcomers) return;
  auto introduction = Introduction::read(message);
  if (!introduction) return;
  const char* name = sd_bus_message_get_sender(message);
  const auto found = senders_.find(std::string_view(name));
  if (found == senders_.end()) {
    meet(name, std::move(introduction));
    return;
  }
  Sender& sender = found->second;
  if (sender.bundleID || sender.isIntroduced) return;
  sender.isKnown = false;
  sender.isIntroduced = true;
  sender.question = inquire(name, std::move(introduction));
  if (!sender.question) settle(name, std::nullopt);
}

// Counts the senders whose introductions are looked into: each holds a descriptor.
std::size_t BusReceiver::newcomers() const {
  return static_cast<std::size_t>(std::ranges::count_if(senders_, [](const auto& entry) {
    return entry.second.isIntroduced && entry.second.question != nullptr;
  }));
}

void BusReceiver::take(Received&& received) {
  lastPresence_ = Clock::now();
  if (const char* name = sd_bus_message_get_sender(received.message.get()); name != nullptr) {
    const auto known = senders_.find(std::string_view(name));
    Sender* sender = known != senders_.end() ? &known->second : meet(name);
    if (sender != nullptr) return park(name, *sender, std::move(received));
  }
  // Its sender cannot be asked for.
  const auto kept = std::make_shared<Received>(std::move(received));
  RunLoop::main().perform([this, kept] { handle(*kept, std::nullopt); });
}

// Adds a new sender; null if the bus cannot be asked for it.
BusReceiver::Sender* BusReceiver::meet(const char* name, std::optional<Introduction> introduction) {
  if (senders_.size() >= mostSenders) forgetSenders();
  Sender sender;
  sender.isIntroduced = introduction.has_value();
  sender.question = inquire(name, std::move(introduction));
  if (!sender.question) return nullptr;
  sender.watch = watch(bus::ownerMatch(name), onSenderGone);
  return &senders_.emplace(name, std::move(sender)).first->second;
}

std::unique_ptr<PeerInquiry::Question> BusReceiver::inquire(
    const char* name, std::optional<Introduction> introduction) {
  return inquiry_.ask(name, std::move(introduction),
                      [this, peer = std::string(name)](std::optional<std::string> bundleID) {
                        settle(peer, std::move(bundleID));
                      });
}

// Watches names on the connection that receives: the news of an owner's end comes after the last
// event of the owner.
BusSlot BusReceiver::watch(const std::string& rule, sd_bus_message_handler_t onChange) {
  sd_bus_slot* slot = nullptr;
  const auto ignore = [](sd_bus_message*, void*, sd_bus_error*) { return 0; };
  sd_bus_add_match_async(bus_.get(), &slot, rule.c_str(), onChange, ignore, this);
  return BusSlot(slot);
}

// While the sender's queue holds events and the sender is known, a task waits to handle the first.
void BusReceiver::park(const char* name, Sender& sender, Received&& received) {
  const std::size_t size = received.size;
  if (sender.isSettled()) {
    RunLoop::main().perform([this, peer = std::string(name)] { handleParked(peer); });
  }
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
// the next one. The handler may take turns of the loop, which handle later events and forget
// senders.
void BusReceiver::handleParked(std::string_view name) {
  const auto found = senders_.find(name);
  if (found == senders_.end()) return;
  Sender& sender = found->second;
  if (!sender.isKnown) return;
  sender.question.reset();
  if (sender.parked.empty()) {
    if (sender.isGone) senders_.erase(found);  // it only introduced itself
    return;
  }
  if (sender.parked.size() > 1) {
    RunLoop::main().perform([this, peer = found->first] { handleParked(peer); });
  }
  const Received received = std::move(sender.parked.front());
  sender.parked.pop_front();
  parking_.giveBack(received.size);
  const auto bundleID = sender.bundleID;
  if (sender.isGone && sender.parked.empty()) senders_.erase(found);
  resume();
  handle(received, bundleID);
}

void BusReceiver::handle(const Received& received, const std::optional<std::string>& sender) {
  if (received.event) {
    const auto answer = handler_.handle(*received.event, sender);
    reply(received.message.get(), answer);
    relief_.afterUseOf(received.size + (answer.result ? answer.result->size() : 0));
  } else {
    sd_bus_reply_method_return(received.message.get(), "");
  }
  lastPresence_ = Clock::now();
  callHandled();
}

int BusReceiver::onSenderGone(sd_bus_message* message, void* self, sd_bus_error*) {
  auto& receiver = *static_cast<BusReceiver*>(self);
  auto& senders = receiver.senders_;
  const char* name = nullptr;
  if (sd_bus_message_read(message, "s", &name) <= 0) return 0;
  const auto found = senders.find(std::string_view(name));
  if (found == senders.end()) return 0;
  receiver.lastPresence_ = Clock::now();
  found->second.isGone = true;
  if (found->second.isSettled()) senders.erase(found);
  return 0;
}

void BusReceiver::forgetSenders() {
  watchForgotten();
  const bool isFull = senders_.size() >= mostForgotten;
  std::erase_if(senders_, [this, isFull](const auto& entry) {
    if (!entry.second.isSettled() || (entry.second.isIntroduced && !isFull)) return false;
    if (forgottenWatch_ && forgotten_.size() < mostForgotten) {
      forgotten_.insert(entry.first);
    } else {
      isCrowded_ = true;
    }
    return true;
  });
}

// Watches the ends of all names before those of the forgotten senders are not watched any more.
void BusReceiver::watchForgotten() {
  if (onLost_ && !forgottenWatch_) forgottenWatch_ = watch(bus::ownerMatch(), onForgottenGone);
}

int BusReceiver::onForgottenGone(sd_bus_message* message, void* self, sd_bus_error*) {
  auto& receiver = *static_cast<BusReceiver*>(self);
  const char* name = nullptr;
  const char* after = nullptr;
  if (sd_bus_message_read(message, "sss", &name, nullptr, &after) <= 0 || *after != '\0') return 0;
  const auto found = receiver.forgotten_.find(std::string_view(name));
  if (found == receiver.forgotten_.end()) return 0;
  receiver.forgotten_.erase(found);
  receiver.lastPresence_ = Clock::now();
  return 0;
}

void BusReceiver::watchStanding(const std::function<void()>& onLost) { onLost_ = onLost; }

RPCTransport::Standing BusReceiver::standing() {
  if (!onLost_) return {};
  if (retry_) connect();
  RPCTransport::Standing standing;
  if (senders_.empty() && forgotten_.empty() && !isCrowded_) standing.idleSince = lastPresence_;
  if (!bus_) standing.lostSince = lostSince_;
  return standing;
}

// Asks the bus, on the connection that receives: the answer comes after all events that came
// before.
void BusReceiver::whenHandled(std::function<void()> done) {
  sd_bus_slot* slot = nullptr;
  if (bus_) {
    sd_bus_call_method_async(bus_.get(), &slot, bus::service, bus::objectPath, bus::interfaceName,
                             "GetId", onAllRead, this, "");
  }
  if (slot == nullptr) return RunLoop::main().perform(std::move(done));
  allRead_.reset(slot);
  isAllRead_ = false;
  onHandled_ = std::move(done);
}

int BusReceiver::onAllRead(sd_bus_message*, void* self, sd_bus_error*) {
  auto& receiver = *static_cast<BusReceiver*>(self);
  receiver.isAllRead_ = true;
  dropExceptions([&] { receiver.callHandled(); });
  return 0;
}

void BusReceiver::callHandled() {
  if (!onHandled_ || !isAllRead_ || !parking_.isEmpty()) return;
  RunLoop::main().perform(std::exchange(onHandled_, nullptr));
}

}  // namespace qbdkr
