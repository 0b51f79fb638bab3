#include "Platform/Events/DBus/BusReceiver.h"

#include <fcntl.h>
#include <time.h>

#include <algorithm>
#include <utility>

#include <ClientComm/RunLoop.h>

#include "Platform/Base/DropExceptions.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Events/DBus/DirectPermission.h"
#include "Platform/Events/DBus/SessionBus.h"
#include "Platform/Loop/MainThread.h"
#include "Platform/Loop/NativeLoopLinux.h"
#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

constexpr std::chrono::microseconds firstRetry = std::chrono::milliseconds(100);
constexpr std::chrono::microseconds longestRetry = std::chrono::seconds(5);
constexpr std::size_t mostForgotten = 4096;
constexpr std::size_t mostNewcomers = 32;
constexpr std::size_t mostDirectSenders = 64;

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

const sd_bus_vtable BusReceiver::directMethods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_NAMES(rpc::connectMember, rpc::connectSignature,
                             SD_BUS_PARAM(socket) SD_BUS_PARAM(events), rpc::agreementSignature,
                             SD_BUS_PARAM(progress), BusReceiver::onOffer,
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD(rpc::beginMember, "", "", BusReceiver::onBeginning,
                  SD_BUS_VTABLE_UNPRIVILEGED | SD_BUS_VTABLE_METHOD_NO_REPLY),
    SD_BUS_VTABLE_END};

BusReceiver::BusReceiver()
    : senders_([this](const ReceivedEvent& received, const std::optional<std::string>& bundleID) {
        resume();
        handle(received, bundleID);
      }) {}

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
  RunLoop::main().perform([this] {
    closeDirect();
    senders_.dropAll();
    disconnect();
  });
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
  // The bus answers, or the connection ends. A limit would also pass while the main thread is busy
  // elsewhere, with the answer on its way.
  if (sd_bus_set_method_call_timeout(bus, UINT64_MAX) < 0) return false;
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
  sd_bus_slot* direct = nullptr;
  if (sd_bus_add_object_vtable(bus, &direct, rpc::objectPath, rpc::directInterface, directMethods,
                               this) < 0) {
    return false;
  }
  direct_.reset(direct);
  isBehindProxy_ = leadsToProxy(bus);
  if (!diagnosis_.attach(bus)) return false;
  if (!watchDisconnection(bus, onDisconnected, this)) return false;
  return sd_bus_attach_event(bus, mainEventLoop(), SD_EVENT_PRIORITY_NORMAL) >= 0;
}

void BusReceiver::disconnect() {
  retry_.reset();
  senders_.outliveBus();
  for (auto next = directSenders_.begin(); next != directSenders_.end();)
    beginOrEndDirect(Sender(*next++));
  forgotten_.clear();
  forgottenWatch_.reset();
  isCrowded_ = false;
  isPaused_ = false;
  inquiry_.close();
  allRead_.reset();
  diagnosis_.detach();
  direct_.reset();
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
  if (bus_) sd_bus_detach_event(bus_.get());
}

void BusReceiver::resume() {
  if (!isPaused_ || senders_.isFull()) return;
  isPaused_ = false;
  if (bus_ && sd_bus_attach_event(bus_.get(), mainEventLoop(), SD_EVENT_PRIORITY_NORMAL) < 0)
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

int BusReceiver::onOffer(sd_bus_message* message, void* self, sd_bus_error*) {
  try {
    static_cast<BusReceiver*>(self)->receiveOffer(message);
  } catch (...) {  // nothing may unwind through the bus library
    refuse(message, SD_BUS_ERROR_FAILED, "no direct connection");
  }
  return 1;
}

int BusReceiver::onBeginning(sd_bus_message* message, void* self, sd_bus_error*) {
  dropExceptions([&] { static_cast<BusReceiver*>(self)->receiveBeginning(message); });
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
  ReceivedEvent received;
  received.message.reset(sd_bus_message_ref(message));
  received.event = std::move(event);
  received.size = allowance.used();
  take(std::move(received));
}

// The question is answered in its turn among the events of its sender: they come to their handler
// before it, and so only when the sender is known.
void BusReceiver::receiveQuestion(sd_bus_message* message) {
  if (!handler_.isSet()) return reply(message, {errAEEventNotHandled, {}});
  ReceivedEvent question;
  question.message.reset(sd_bus_message_ref(message));
  take(std::move(question));
}

// Takes a direct connection. The events that come on it count as those of this sender, whom the bus
// has told: so it begins when the sender is known.
void BusReceiver::receiveOffer(sd_bus_message* message) {
  const char* name = sd_bus_message_get_sender(message);
  int socket = -1;
  int memory = -1;
  if (!handler_.isSet() || !mayConnectDirectly() || name == nullptr ||
      sd_bus_message_read(message, rpc::connectSignature, &socket, &memory) <= 0 ||
      !direct::isEndOfPair(socket)) {
    return refuse(message, SD_BUS_ERROR_FAILED, "no direct connection");
  }
  auto sender = senders_.find(name);
  if (!sender) sender = meet(name);
  // The sender has left an earlier connection, or did not begin it.
  if (sender && sender->direct) sender->direct->readToEnd();
  if (sender && sender->direct && !sender->direct->hasBegun()) endDirect(sender);
  Descriptor kept(::fcntl(socket, F_DUPFD_CLOEXEC, 0));
  const bool hasRoom = sender && !sender->direct && directSenders_.size() < mostDirectSenders;
  auto ring = hasRoom ? direct::RingReader::map(memory) : std::nullopt;
  if (!kept || !ring) return refuse(message, SD_BUS_ERROR_LIMITS_EXCEEDED, "no direct connection");
  Descriptor progress = ring->takeDescriptor();
  const std::weak_ptr<KnownSender> weak = sender;
  sender->direct = std::make_shared<DirectPeer>(
      std::move(kept), *std::move(ring),
      [this, weak](direct::Request&& request) {
        if (const auto from = weak.lock()) takeDirect(from, std::move(request));
      },
      [this, weak] {
        if (const auto from = weak.lock()) endDirect(from);
      });
  directSenders_.insert(sender);
  sender->offer.reset(sd_bus_message_ref(message));
  sender->progress = std::move(progress);
  if (sender->isKnown) agree(sender);
}

void BusReceiver::agree(const Sender& sender) {
  const BusMessage offer = std::move(sender->offer);
  const Descriptor progress = std::move(sender->progress);
  if (!offer ||
      sd_bus_reply_method_return(offer.get(), rpc::agreementSignature, progress.get()) >= 0) {
    return;
  }
  endDirect(sender);
  refuse(offer.get(), SD_BUS_ERROR_FAILED, "no direct connection");
}

// The sender's events go to the direct connection from here on.
void BusReceiver::receiveBeginning(sd_bus_message* message) {
  const char* name = sd_bus_message_get_sender(message);
  const auto sender = name == nullptr ? nullptr : senders_.find(name);
  if (!sender || !sender->direct) return;
  if (!sender->direct->begin()) endDirect(sender);
}

// The beginning may be lost with the bus, or with the sender's connection to it: what is to be read
// comes next. A sender that will not be known is told by the end.
void BusReceiver::beginOrEndDirect(const Sender& sender) {
  const auto direct = sender->direct;
  if (!direct) return;
  const bool isBeingAskedFor = sender->question && direct->hasBegun();
  if (isBeingAskedFor || (sender->isKnown && direct->begin())) return;
  endDirect(sender);
  direct->close();
}

void BusReceiver::takeDirect(const Sender& sender, direct::Request&& request) {
  lastPresence_ = Clock::now();
  ReceivedEvent received;
  received.direct = sender->direct;
  received.serial = request.serial;
  received.expectsAnswer = request.expectsAnswer;
  received.takesRoom = sender->direct->hasLeft();  // for the bus
  received.event = std::move(request.event);
  received.size = request.size;
  park(sender, std::move(received));
}

void BusReceiver::endDirect(const Sender& sender) {
  const auto ended = std::exchange(sender->direct, nullptr);
  directSenders_.erase(sender);
  sender->offer.reset();
  sender->progress = {};
  lastPresence_ = Clock::now();
  if (lostSince_) lostSince_ = lastPresence_;
  senders_.forgetDeparted(sender);
  if (!bus_ && directSenders_.empty() && onLost_) RunLoop::main().perform(onLost_);
}

// Ends all direct connections, and drops what came on them.
void BusReceiver::closeDirect() {
  for (const auto& sender : std::exchange(directSenders_, {})) {
    senders_.drop(*sender);
    if (const auto closed = std::exchange(sender->direct, nullptr)) closed->close();
  }
}

void BusReceiver::readAllDirect() {
  for (const auto& sender : std::set(directSenders_)) {
    if (sender->direct) sender->direct->readAll();
  }
}

// Takes an introduction before the first event of its sender, or after one that was on its way
// while the name got this owner. Ignores it without a proxy: the bus tells the process then.
void BusReceiver::receiveIntroduction(sd_bus_message* message) {
  if (!handler_.isSet() || !isBehindProxy_ || senders_.newcomers() >= mostNewcomers) return;
  auto introduction = Introduction::read(message);
  if (!introduction) return;
  const char* name = sd_bus_message_get_sender(message);
  const auto sender = senders_.find(name);
  if (!sender) {
    meet(name, std::move(introduction));
    return;
  }
  if (sender->peer.bundleID || sender->isIntroduced) return;
  sender->isKnown = false;
  sender->isIntroduced = true;
  inquire(sender, name, std::move(introduction));
  if (!sender->question) settle(sender, {});
}

void BusReceiver::take(ReceivedEvent&& received) {
  lastPresence_ = Clock::now();
  if (const char* name = sd_bus_message_get_sender(received.message.get()); name != nullptr) {
    auto sender = senders_.find(name);
    if (!sender) sender = meet(name);
    // A sender that has left its direct connection for the bus sends nothing more on that one.
    if (sender && sender->direct) sender->direct->readToEnd();
    if (sender) return park(sender, std::move(received));
  }
  // Its sender cannot be asked for.
  const auto kept = std::make_shared<ReceivedEvent>(std::move(received));
  RunLoop::main().perform([this, kept] { handle(*kept, std::nullopt); });
}

// Adds a new sender; null if the bus cannot be asked for it.
BusReceiver::Sender BusReceiver::meet(const char* name, std::optional<Introduction> introduction) {
  if (senders_.isCrowded()) forgetSenders();
  auto sender = std::make_shared<KnownSender>();
  sender->isIntroduced = introduction.has_value();
  inquire(sender, name, std::move(introduction));
  if (!sender->question) return nullptr;
  sender->watch = watch(bus::ownerMatch(name), onSenderGone);
  senders_.add(name, sender);
  if (!isBehindProxy_) sender->presence = askForPresence(*sender);
  return sender;
}

// The sender has no question if the bus cannot be asked.
void BusReceiver::inquire(const Sender& sender, const char* name,
                          std::optional<Introduction> introduction) {
  const std::weak_ptr<KnownSender> weak = sender;
  sender->question =
      inquiry_.ask(name, std::move(introduction), [this, weak](PeerInquiry::Peer peer) {
        if (const auto asked = weak.lock()) settle(asked, std::move(peer));
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

// No news comes of an end before the watch. Asks on the connection that receives: the answer comes
// after the last event.
BusSlot BusReceiver::askForPresence(KnownSender& sender) {
  sd_bus_slot* slot = nullptr;
  sd_bus_call_method_async(bus_.get(), &slot, bus::service, bus::objectPath, bus::interfaceName,
                           "NameHasOwner", onPresence, &sender, "s", sender.name.c_str());
  return BusSlot(slot);
}

int BusReceiver::onPresence(sd_bus_message* message, void* sender, sd_bus_error*) {
  int isThere = 1;
  if (sd_bus_message_is_method_error(message, nullptr) > 0 ||
      sd_bus_message_read(message, "b", &isThere) <= 0 || isThere != 0) {
    return 1;
  }
  dropExceptions([&] { shared().noteGone(static_cast<KnownSender*>(sender)->name); });
  return 1;
}

void BusReceiver::park(const Sender& sender, ReceivedEvent&& received) {
  senders_.park(sender, std::move(received));
  if (senders_.isFull()) pause();
}

void BusReceiver::settle(const Sender& sender, PeerInquiry::Peer peer) {
  senders_.settle(sender, std::move(peer));
  agree(sender);
}

void BusReceiver::handle(const ReceivedEvent& received, const std::optional<std::string>& sender) {
  if (received.event) {
    auto answer = handler_.handle(*received.event, sender);
    // The bus library would refuse to send it, and the one who asked would wait for ever.
    if (answer.result && hasAnyNoncharacter(*answer.result)) answer.result.reset();
    if (!received.direct) reply(received.message.get(), answer);
    if (received.direct && received.expectsAnswer) received.direct->answer(received.serial, answer);
    relief_.afterUseOf(received.size + (answer.result ? answer.result->size() : 0));
  } else if (received.direct) {
    received.direct->answer(received.serial, {});
  } else {
    sd_bus_reply_method_return(received.message.get(), "");
  }
  lastPresence_ = Clock::now();
  callHandled();
}

int BusReceiver::onSenderGone(sd_bus_message* message, void* self, sd_bus_error*) {
  const char* name = nullptr;
  if (sd_bus_message_read(message, "s", &name) <= 0) return 0;
  dropExceptions([&] { static_cast<BusReceiver*>(self)->noteGone(name); });
  return 0;
}

void BusReceiver::noteGone(std::string_view name) {
  const auto sender = senders_.find(name);
  if (!sender) return;
  lastPresence_ = Clock::now();
  beginOrEndDirect(sender);
  senders_.depart(sender);
}

void BusReceiver::forgetSenders() {
  watchForgotten();
  for (std::string& name : senders_.forgetSettled()) {
    if (forgottenWatch_ && forgotten_.size() < mostForgotten) {
      forgotten_.insert(std::move(name));
    } else {
      isCrowded_ = true;
    }
  }
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
  const bool hasSenders = !senders_.isEmpty() || !directSenders_.empty();
  if (!hasSenders && forgotten_.empty() && !isCrowded_) standing.idleSince = lastPresence_;
  // A peer that has a direct connection is there, whatever became of the bus.
  if (!bus_ && directSenders_.empty()) standing.lostSince = lostSince_;
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
  allRead_.reset(slot);
  isAllRead_ = slot == nullptr;
  onHandled_ = std::move(done);
  if (!isAllRead_) return;
  readAllDirect();
  callHandled();
}

int BusReceiver::onAllRead(sd_bus_message*, void* self, sd_bus_error*) {
  auto& receiver = *static_cast<BusReceiver*>(self);
  receiver.isAllRead_ = true;
  dropExceptions([&] {
    receiver.readAllDirect();
    receiver.callHandled();
  });
  return 0;
}

void BusReceiver::callHandled() {
  if (!onHandled_ || !isAllRead_ || senders_.hasParked()) return;
  RunLoop::main().perform(std::exchange(onHandled_, nullptr));
}

}  // namespace qbdkr
