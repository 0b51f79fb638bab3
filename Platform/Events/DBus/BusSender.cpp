#include "Platform/Events/DBus/BusSender.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <exception>
#include <list>
#include <utility>
#include <vector>

#include "Platform/Base/DetachedThread.h"
#include "Platform/Base/DropExceptions.h"
#include "Platform/Base/FreeMemoryLinux.h"
#include "Platform/Events/DBus/BusAnswer.h"
#include "Platform/Events/DBus/BusMessages.h"
#include "Platform/Events/DBus/BusName.h"
#include "Platform/Events/DBus/BusReceiver.h"
#include "Platform/Events/DBus/DirectPermission.h"
#include "Platform/Events/DBus/Introduction.h"
#include "Platform/Events/DBus/SessionBus.h"

namespace qbdkr {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t withoutTimeOut = UINT64_MAX;  // as sd-bus takes it
constexpr Clock::time_point forever = Clock::time_point::max();
constexpr std::chrono::microseconds drainInterval(200);
constexpr std::chrono::seconds openingInterval(1);  // by senders that do not need the bus
constexpr std::size_t mostLinks = 64;
constexpr unsigned eventsBeforeOffer = 2;  // a process that sends one needs no more than the bus
constexpr std::size_t mostUntaken = std::size_t{64} << 20U;  // bytes for a peer that takes nothing
constexpr std::size_t mostFlushed = 4096;  // targets, as many as there can be known senders
constexpr std::size_t largeText = std::size_t{1} << 20U;  // bytes worth giving back
constexpr int mostMessagesPerSend = 1000;  // a flood from outside must not keep a sender busy

// Returns the time at which the connection itself wants to be processed. sd-bus tells it by the
// same clock.
Clock::time_point busDeadline(sd_bus* bus) {
  std::uint64_t time = UINT64_MAX;
  sd_bus_get_timeout(bus, &time);
  if (time >= asMicroseconds(std::chrono::hours(24 * 365 * 100))) return forever;
  return Clock::time_point(std::chrono::microseconds(time));
}

// In milliseconds, rounded up; -1 for no deadline.
int pollTimeout(Clock::time_point deadline) {
  if (deadline == forever) return -1;
  const auto time = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(time, 0, INT32_MAX));
}

// Tells whether a target took what came before the question, by its answer. A target that does not
// know the question has read it in its turn. One that is gone takes nothing more.
OSErr statusOfDelivery(sd_bus_message* answer) {
  const sd_bus_error* error = sd_bus_message_get_error(answer);
  const char* sender = sd_bus_message_get_sender(answer);
  const bool isOfTheTarget = sender != nullptr && *sender == ':';
  if (error == nullptr || isOfTheTarget) return noErr;
  const OSErr status = statusOfError(error);
  return status == procNotFound || status == connectionInvalid ? OSErr{noErr} : status;
}

// Returns the memory that an event takes on its way, roughly.
std::size_t sizeOf(const RPCEvent& event) {
  constexpr std::size_t besides = 512;
  std::size_t size = besides;
  for (const std::string& text : event.arguments) size += text.size();
  return size;
}

}  // namespace

OSErr BusSender::post(const RPCTarget& target, const RPCEvent& event) {
  Lock lock(mutex_);
  if (const auto link = linkTo(target); link && link->post(event)) return noErr;
  return postOnBus(lock, target, event);
}

OSErr BusSender::postOnBus(Lock& lock, const RPCTarget& target, const RPCEvent& event) {
  const std::string& identifier = target.bundleID;
  if (!connect(lock)) return busNameOfIdentifier(identifier) ? connectionInvalid : paramErr;
  std::shared_ptr<KnownTarget> known = targets_.find(identifier);
  if (!known || !known->isTrusted()) {
    if (const OSErr status = findOwner(lock, identifier, known); status != noErr) return status;
  }
  std::string approved;
  if (target.directory) {
    const OSErr status = approveOwner(lock, known, *target.directory, approved);
    if (status != noErr) return status;
  }
  const std::string& address = target.directory ? approved : known->name;
  const std::uint64_t generation = generation_;  // an address is worth nothing on another bus
  introduce(identifier, address);
  if (const auto link = linkTo(target); link && link->post(event)) return noErr;
  if (!bus_ || generation_ != generation) return connectionInvalid;
  if (const OSErr status = leaveLink(*known, event); status != noErr) return status;
  const BusMessage message = newEventCall(bus_.get(), address, event);
  if (!message || sd_bus_message_set_expect_reply(message.get(), 0) < 0) return paramErr;
  std::uint64_t* const last = lastPostTo(address);  // before anything is sent: memory may run out
  const int sent = sd_bus_send(bus_.get(), message.get(), nullptr);
  if (sent < 0) return failedToSend(sent);
  if (last != nullptr) *last = ++lastPost_;
  offerLink(*known, address);
  if (flush(lock)) return noErr;
  // A connection that is closed in the middle of a message delivers none of that message.
  const OSErr status = bus_ ? errAETimeout : connectionInvalid;
  disconnect();
  return status;
}

RPCTransport::Answer BusSender::ask(const RPCTarget& target, const RPCEvent& event) {
  std::size_t size = 0;
  auto answer = call(target, event, size);
  // The C library would keep the memory of the message; at the top of a thread's own heap it still
  // keeps some.
  if (size >= largeText) releaseFreeMemory();
  return answer;
}

// Makes the call, and stores the size of the reply's text. Releases messages under the lock, under
// which all of the bus is used.
RPCTransport::Answer BusSender::call(const RPCTarget& target, const RPCEvent& event,
                                     std::size_t& size) {
  Lock lock(mutex_);
  Pending pending;
  if (askDirectly(target, event, pending)) return awaitDirect(lock, pending, size);
  const std::string& identifier = target.bundleID;
  const auto name = busNameOfIdentifier(identifier);
  if (!name) return {paramErr, {}};
  if (!connect(lock)) return {connectionInvalid, {}};
  std::string address = *name;
  if (target.directory) {
    std::shared_ptr<KnownTarget> approved;
    OSErr status = findOwner(lock, identifier, approved);
    if (status == noErr) status = approveOwner(lock, approved, *target.directory, address);
    if (status != noErr) return {status, {}};
  }
  const Bus bus = bus_;  // an address is worth nothing on another one; outlives the slot below
  introduce(identifier, address);
  if (askDirectly(target, event, pending)) return awaitDirect(lock, pending, size);
  if (!bus || bus_ != bus) return {connectionInvalid, {}};
  const auto known = targets_.findOrAdd(identifier, *name);
  if (const OSErr status = leaveLink(*known, event); status != noErr) return {status, {}};
  const BusMessage message = newEventCall(bus_.get(), address, event);
  if (!message) return {paramErr, {}};
  sd_bus_slot* slot = nullptr;
  const int sent =
      sd_bus_call_async(bus.get(), &slot, message.get(), onReply, &pending, withoutTimeOut);
  if (sent < 0) return {failedToSend(sent), {}};
  const BusSlot owned(slot);
  offerLink(*known, address);
  if (!runUntil(lock, forever, [&] { return pending.done; })) return {connectionInvalid, {}};
  return readAnswer(pending.reply.get(), size);
}

bool BusSender::askDirectly(const RPCTarget& target, const RPCEvent& event, Pending& pending) {
  const auto link = linkTo(target);
  if (!link) return false;
  if (!link->isAwaited()) wakeReader();
  return link->ask(event, onDirectReply, &pending);
}

// Waits for the answer, or for the end of the direct connection, whatever becomes of the bus.
RPCTransport::Answer BusSender::awaitDirect(Lock& lock, Pending& pending, std::size_t& size) {
  while (!pending.done) runUntil(lock, forever, [&] { return pending.done; });
  size = pending.size;
  return *std::move(pending.direct);
}

// Returns where the last post to an address is counted; null if too many addresses are.
std::uint64_t* BusSender::lastPostTo(const std::string& address) {
  if (const auto known = posts_.find(address); known != posts_.end()) return &known->second;
  if (posts_.size() >= mostFlushed) return nullptr;
  return &posts_.emplace(address, lastPost_).first->second;
}

// The questions go the way of the posts, so each comes to its target after them. All are asked
// before the first answer is awaited.
OSErr BusSender::flush(Clock::time_point deadline) {
  Lock lock(mutex_);
  std::list<Delivery> deliveries;
  const bool isInTime = Clock::now() < deadline;
  const bool hasDirectPosts = std::ranges::any_of(links_, &DirectLink::hasPosts);
  if ((!posts_.empty() || hasDirectPosts) && !isInTime) return errAETimeout;
  if (hasDirectPosts) askLinksWhetherTaken(deliveries);
  OSErr status = std::exchange(hasLostPosts_, false) ? connectionInvalid : noErr;
  const Bus bus = bus_;  // outlives the slots below, whatever becomes of the connection
  const bool asksBus = !posts_.empty();
  for (const auto& [address, last] : posts_) {
    Delivery& delivery = deliveries.emplace_back();
    delivery.address = address;
    delivery.lastPost = last;
    const int sent = askWhetherTaken(bus.get(), delivery);
    if (sent < 0) {
      status = failedToSend(sent);
      hasLostPosts_ = false;  // the status says it
      return status;
    }
  }
  auto next = deliveries.begin();
  const auto isAnswered = [&] {
    while (next != deliveries.end() && (next->answer.done || (!next->link && bus_ != bus))) ++next;
    return next == deliveries.end();
  };
  while (!isAnswered() && Clock::now() < deadline) runUntil(lock, deadline, isAnswered);
  // The bus library answers the questions itself when the connection ends.
  if (asksBus && (bus_ != bus || sd_bus_is_ready(bus.get()) <= 0)) {
    if (bus_ == bus) disconnect();
    hasLostPosts_ = false;
    return connectionInvalid;
  }
  for (const Delivery& delivery : deliveries) {
    const OSErr outcome = settle(delivery);
    if (status == noErr) status = outcome;
  }
  if (isAnswered()) return status;
  if (status == connectionInvalid) hasLostPosts_ = true;  // to be said by a later one
  return errAETimeout;
}

// Asks on the direct connections. The bus takes over the question about one that was left, unless
// that is another bus.
void BusSender::askLinksWhetherTaken(std::list<Delivery>& deliveries) {
  for (const auto& link : links_) {
    if (!link->hasPosts()) continue;
    Delivery& delivery = deliveries.emplace_back();
    delivery.lastPost = link->lastPost();
    if (!link->isAwaited()) wakeReader();
    delivery.link = link;
    const bool isLeft = link->isDraining();
    if (!isLeft && link->askWhetherTaken(onDirectReply, &delivery.answer, delivery.serial))
      continue;
    link->leave();
    if (outlivedItsBus(*link)) {
      link->awaitEnd(onDirectReply, &delivery.answer, delivery.serial);
      continue;
    }
    deliveries.pop_back();
    askOnBus(*link);
  }
}

// Tells whether the bus cannot be asked about a connection that was left: the peer has another name
// there.
bool BusSender::outlivedItsBus(const DirectLink& link) const {
  return link.isDraining() && !link.isOfBus(bus_.get());
}

// Makes the bus take over the question about a connection that was left.
void BusSender::askOnBus(DirectLink& link) {
  if (link.isDraining() && link.isOfBus(bus_.get())) {
    if (std::uint64_t* const last = lastPostTo(link.peer())) *last = ++lastPost_;
  }
  link.notePostsTaken(link.lastPost());
}

BusSender::Delivery::~Delivery() {
  if (link && !answer.done) link->forget(serial);
}

int BusSender::askWhetherTaken(sd_bus* bus, Delivery& delivery) {
  const BusMessage message =
      newMethodCall(bus, delivery.address, rpc::deliveryInterface, rpc::flushMember);
  if (!message) return -ENOMEM;
  sd_bus_slot* slot = nullptr;
  const int result =
      sd_bus_call_async(bus, &slot, message.get(), onReply, &delivery.answer, withoutTimeOut);
  delivery.slot.reset(slot);
  return result;
}

// Forgets the posts that a target took. Later ones to it stay known.
OSErr BusSender::settle(const Delivery& delivery) {
  if (!delivery.answer.done) return noErr;
  if (delivery.link) {  // the end of the connection is that of its target
    delivery.link->notePostsTaken(static_cast<direct::Serial>(delivery.lastPost));
    return noErr;
  }
  const OSErr status = statusOfDelivery(delivery.answer.reply.get());
  const auto known = posts_.find(delivery.address);
  if (status == noErr && known != posts_.end() && known->second == delivery.lastPost) {
    posts_.erase(known);
  }
  return status;
}

// Opens the connection if necessary, and waits until the bus has greeted it. Then sends what was
// started before, which comes first.
bool BusSender::connect(Lock& lock) {
  if (bus_) drain();
  if (!bus_ && !open()) return false;
  if (!isGreeted()) {
    const Bus bus = bus_;
    runUntil(lock, Clock::now() + busPatience, [&] { return sd_bus_is_ready(bus.get()) > 0; });
    if (bus_ != bus) return false;
    if (!isGreeted()) {
      disconnect();
      return false;
    }
  }
  return !requests_.hasUnsent() || sendEarlier(lock);
}

bool BusSender::open() {
  lastOpening_ = Clock::now();
  if (!wake_) wake_ = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  UniqueBus opened = wake_ ? openSessionBus() : nullptr;
  if (!opened) return false;
  bus_ = std::move(opened);
  isBehindProxy_ = leadsToProxy(bus_.get());
  ++generation_;
  wasGreeted_ = false;
  greetingDeadline_ = Clock::now() + busPatience;
  wakeReader();  // it may read direct connections alone
  return true;
}

bool BusSender::isGreeted() {
  if (wasGreeted_) return true;
  if (sd_bus_is_ready(bus_.get()) <= 0) return false;
  wasGreeted_ = true;
  identify();
  if (!links_.empty()) watchers_.ask(bus_.get());
  // The bus can be reached (again), which the receiver needs to know.
  dropExceptions([] { BusReceiver::shared().busAppeared(); });
  return true;
}

// Asks for the process ID under which the bus knows this process. The answer comes before those to
// all later questions, so the first send has it as a rule.
void BusSender::identify() {
  const char* name = nullptr;
  if (sd_bus_get_unique_name(bus_.get(), &name) < 0) return;
  sd_bus_call_method_async(bus_.get(), nullptr, bus::service, bus::objectPath, bus::interfaceName,
                           "GetConnectionUnixProcessID", onOwnProcess, this, "s", name);
}

int BusSender::onOwnProcess(sd_bus_message* message, void* self, sd_bus_error*) {
  std::uint32_t process = 0;
  if (sd_bus_message_is_method_error(message, nullptr) > 0 ||
      sd_bus_message_read(message, "u", &process) <= 0) {
    return 0;
  }
  const auto known = static_cast<pid_t>(process);
  static_cast<BusSender*>(self)->foreignProcess_ = known == getpid() ? 0 : known;
  return 0;
}

std::optional<pid_t> BusSender::foreignProcess() const {
  const pid_t process = foreignProcess_;
  if (process == 0) return std::nullopt;
  return process;
}

OSErr BusSender::failedToSend(int error) {
  // No part of the message was sent.
  if (error == -ENOMEM) return paramErr;
  disconnect();
  return connectionInvalid;
}

// Ends the connection to the bus. Direct connections stay, and with them the records of those who
// have them.
void BusSender::disconnect() {
  targets_.forgetBus();
  watchers_.forgetBus();
  inquiry_.reset();
  if (!posts_.empty()) hasLostPosts_ = true;
  posts_.clear();
  bus_.reset();
  requests_.finishSent(connectionInvalid, [](const PendingRequest& request) {
    return !static_cast<const Started&>(request).link;
  });
  // Those to be sent get another connection, unless this one never came about.
  if (!wasGreeted_) requests_.finishUnsent(connectionInvalid);
  ++generation_;
  wakeOthers();
}

// Processes the messages that came in: the owners are then as the bus last said. A sender of many
// events does not do so for each of them.
void BusSender::drain() {
  const auto time = Clock::now();
  if (time - lastDrain_ < drainInterval) return;
  lastDrain_ = time;
  for (int i = 0; i < mostMessagesPerSend; ++i) {
    const int result = sd_bus_process(bus_.get(), nullptr);
    if (result == 0) return;
    if (result < 0) return disconnect();
    wakeOthers();
  }
}

// Makes the waiting threads check again whether they are done.
void BusSender::wakeOthers() {
  wakeWaiting();
  wakeReader();
}

// Makes the thread that polls look again at what it is to poll.
void BusSender::wakeReader() {
  if (!reading_) return;
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(wake_.get(), &one, sizeof one);
}

void BusSender::wakeWaiting() {
  if (waiting_ > 0) progress_.notify_all();
  if (isWorkerAside_) stir();
}

// Runs the connection until done() holds. False if the connection ended or the deadline passed.
template <class Done>
bool BusSender::runUntil(Lock& lock, Clock::time_point deadline, Done done) {
  // The last message may be partly unsent, and a thread that polls already does not poll for
  // writing.
  if (bus_ && !isWritten()) wakeOthers();
  const bool held = readUntil(lock, deadline, done);
  // Another thread reads from now on.
  wakeWaiting();
  return held;
}

template <class Done>
bool BusSender::readUntil(Lock& lock, Clock::time_point deadline, Done done) {
  const std::uint64_t generation = generation_;
  const Bus bus = bus_;
  bool isBusDue = false;
  while (!done()) {
    if (generation != generation_ || Clock::now() >= deadline) return false;
    if (reading_) {
      awaitReader(lock, deadline);
    } else if (!isBusDue) {
      isBusDue = read(lock, deadline, bus.get());
    } else {
      const int result = sd_bus_process(bus.get(), nullptr);
      if (result < 0) {
        disconnect();
        return done();
      }
      isBusDue = result > 0;
      if (isBusDue) wakeOthers();
    }
  }
  return true;
}

// Waits until the thread that reads has handed out something, or reads no more.
void BusSender::awaitReader(Lock& lock, Clock::time_point deadline) {
  if (isWorker()) {
    isWorkerAside_ = true;
    awaitStir(lock, deadline);
    isWorkerAside_ = false;
    return;
  }
  ++waiting_;
  if (deadline == forever) {
    progress_.wait(lock);
  } else {
    progress_.wait_until(lock, deadline);
  }
  --waiting_;
}

// Polls the sockets, and takes what came in on the direct connections. True if the bus is to be
// processed.
bool BusSender::read(Lock& lock, Clock::time_point deadline, sd_bus* bus) {
  // A thread that waits must not fail for want of memory: its answer is to come on its stack.
  constexpr std::size_t others = 3;
  std::array<pollfd, others + mostLinks> events;  // NOLINT(*-member-init): the most are not used
  events[0] = {-1, 0, 0};
  events[1] = {wake_.get(), POLLIN, 0};
  events[2] = {isWorker() ? stir_.get() : -1, POLLIN, 0};
  if (bus != nullptr) {
    events[0] = {sd_bus_get_fd(bus), static_cast<short>(sd_bus_get_events(bus)), 0};
    deadline = std::min(deadline, busDeadline(bus));
  }
  std::size_t count = others;
  for (const auto& link : links_) {
    if (link->isAwaited()) events[count++] = {link->descriptor(), POLLIN, 0};
  }
  reading_ = true;
  lock.unlock();
  const int ready = ::poll(events.data(), count, pollTimeout(deadline));
  lock.lock();
  reading_ = false;
  std::uint64_t ignored = 0;
  if (events[1].revents != 0) {
    [[maybe_unused]] const auto got = ::read(wake_.get(), &ignored, sizeof ignored);
  }
  if (events[2].revents != 0) {
    [[maybe_unused]] const auto got = ::read(stir_.get(), &ignored, sizeof ignored);
    isStirred_ = true;
  }
  const bool isLinkDue = std::any_of(events.data() + others, events.data() + count,
                                     [](const pollfd& event) { return event.revents != 0; });
  if (isLinkDue) readLinks();
  return bus != nullptr && (ready == 0 || events[0].revents != 0);
}

// Takes what came in on the direct connections. Each has one packet at a time.
void BusSender::readLinks() {
  for (const auto& link : links_) {
    if (link->isAwaited()) link->read();
  }
  wakeWaiting();
}

BusSender::BusSender()
    : watchers_([this] {
        for (const auto& link : links_) link->drop();
      }),
      requests_([this] { stir(); }) {}

namespace {

std::atomic<BusSender*> senderOfProcess{nullptr};

}  // namespace

BusSender& BusSender::shared() {
  // In a forked child the connection, its lock and the threads that wait on it are the parent's.
  static const int watched = pthread_atfork(nullptr, nullptr, [] { senderOfProcess = nullptr; });
  static_cast<void>(watched);
  BusSender* current = senderOfProcess.load();
  if (current != nullptr) return *current;
  std::unique_ptr<BusSender> made(new BusSender);
  if (senderOfProcess.compare_exchange_strong(current, made.get())) return *made.release();
  return *current;
}

bool BusSender::start(const RPCTarget& target, RPCEvent event, const RequestLimits& limits,
                      RPCTransport::Completion completion, OSErr refusal) {
  if (!startWorker()) return false;
  requests_.add(std::make_shared<Started>(target, std::move(event), limits, std::move(completion)),
                refusal);
  return true;
}

// Does not use the lock of the connection, which other threads hold while they send.
bool BusSender::startWorker() {
  const std::lock_guard lock(workerMutex_);
  if (hasWorker_) return true;
  if (!stir_) stir_ = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  hasWorker_ = stir_ && detachNewThread([this] { work(); });
  return hasWorker_;
}

void BusSender::stir() const {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(stir_.get(), &one, sizeof one);
}

// Waits for stir().
void BusSender::awaitStir(Lock& lock, Clock::time_point deadline) {
  pollfd event{stir_.get(), POLLIN, 0};
  lock.unlock();
  ::poll(&event, 1, pollTimeout(deadline));
  std::uint64_t ignored = 0;
  [[maybe_unused]] const auto got = ::read(stir_.get(), &ignored, sizeof ignored);
  lock.lock();
  isStirred_ = true;
}

// The thread of the requests that were started.
void BusSender::work() {
  Lock lock(mutex_);
  worker_ = std::this_thread::get_id();
  for (;;) {
    requests_.expire(Clock::now());
    sendStarted();
    const auto finished = requests_.takeFinished();
    if (finished.empty()) {
      awaitNews(lock);
    } else {
      complete(lock, finished);
    }
  }
}

// Waits until a request is over, or something can be done for one. Only one that is not sent yet
// can do with a greeting or the answer to an inquiry.
void BusSender::awaitNews(Lock& lock) {
  isStirred_ = false;
  const bool hasUnsent = requests_.hasUnsent();
  if (!bus_ && hasUnsent) return;  // sends on a new connection
  auto deadline = requests_.nextDeadline();
  const bool awaitsLinks = std::ranges::any_of(links_, &DirectLink::isAwaited);
  if ((!bus_ && !awaitsLinks) || !requests_.hasOpen()) return awaitStir(lock, deadline);
  const bool waitsForGreeting = hasUnsent && !wasGreeted_;
  const bool waitsForOutcome = hasUnsent && inquiry_;
  if (waitsForGreeting) deadline = std::min(deadline, greetingDeadline_);
  if (waitsForOutcome) deadline = std::min(deadline, inquiry_->deadline());
  runUntil(lock, deadline, [&] {
    if (isStirred_ || requests_.hasFinished()) return true;
    if (waitsForGreeting) return !bus_ || sd_bus_is_ready(bus_.get()) > 0;
    return waitsForOutcome && inquiry_ && inquiry_->outcome();
  });
}

// Calls completions without the lock.
void BusSender::complete(Lock& lock, const PendingRequests::Requests& finished) {
  std::size_t largest = 0;
  for (const auto& request : finished) {
    auto& started = static_cast<Started&>(*request);
    started.slot.reset();
    started.bus.reset();
    if (started.link) started.link->forget(started.serial);
    started.link.reset();
    largest = std::max(largest, started.size);
  }
  lock.unlock();
  PendingRequests::complete(finished);
  if (largest >= largeText) releaseFreeMemory();
  lock.lock();
}

// Sends the requests that were started before, so that what the caller sends comes after them.
// False if the connection ended.
bool BusSender::sendEarlier(Lock& lock) {
  const Bus bus = bus_;
  const std::uint64_t last = requests_.lastNumber();
  runUntil(lock, Clock::now() + busPatience, [&] {
    if (bus_ == bus) sendStarted();
    return bus_ != bus || requests_.firstUnsentNumber() > last;
  });
  return bus_ == bus;
}

// Sends the requests that were started, as far as that needs no waiting.
void BusSender::sendStarted() {
  bool hasNoBus = false;
  while (const auto first = requests_.firstUnsent()) {
    auto& request = static_cast<Started&>(*first);
    try {
      if (sendDirectly(request)) continue;
      if (bus_) drain();
      if (!bus_ && !hasNoBus) hasNoBus = !open();
      if (hasNoBus) {
        request.finish({connectionInvalid, {}});
        continue;
      }
      if (!isGreeted()) {
        if (Clock::now() >= greetingDeadline_) disconnect();
        return;
      }
      std::string address;
      const auto status = findAddress(request.target(), address);
      if (!status || !bus_) return;
      if (*status != noErr) {
        request.finish({*status, {}});
        continue;
      }
      if (sendDirectly(request)) continue;
      if (requests_.beginSending(request)) sendStarted(request, address);
    } catch (const std::exception&) {  // no memory
      first->finish({paramErr, {}});
    }
  }
}

// Sends a request on the direct connection to its target. False if it has to go over the bus.
bool BusSender::sendDirectly(Started& request) {
  const auto link = openLinkTo(request.target());
  if (!link || requests_.isOver(request)) return false;
  if (!link->isAwaited()) wakeReader();
  if (!link->ask(request.event(), onDirectAnswer, &request, &request.serial)) return false;
  request.link = link;
  if (requests_.beginSending(request)) request.forgetEvent();
  return true;
}

void BusSender::sendStarted(Started& request, const std::string& address) {
  introduce(request.target().bundleID, address);
  if (!bus_) return request.finish({connectionInvalid, {}});
  const std::string& identifier = request.target().bundleID;
  const auto known =
      targets_.findOrAdd(identifier, busNameOfIdentifier(identifier).value_or(address));
  if (const OSErr status = leaveLink(*known, request.event()); status != noErr)
    return request.finish({status, {}});
  const BusMessage message = newEventCall(bus_.get(), address, request.event());
  if (!message) return request.finish({paramErr, {}});
  request.bus = bus_;
  sd_bus_slot* slot = nullptr;
  const int sent =
      sd_bus_call_async(bus_.get(), &slot, message.get(), onAnswer, &request, withoutTimeOut);
  request.slot.reset(slot);
  if (sent < 0) return request.finish({failedToSend(sent), {}});
  request.forgetEvent();
  offerLink(*known, address);
}

// Returns the status, and stores the address that an event for a target goes to. Absent while the
// bus is asked for it.
std::optional<OSErr> BusSender::findAddress(const RPCTarget& target, std::string& address) {
  const auto name = busNameOfIdentifier(target.bundleID);
  if (!name) return paramErr;
  address = *name;
  if (!target.directory) return noErr;
  std::shared_ptr<KnownTarget> known;
  if (const OSErr status = watchOwner(target.bundleID, known); status != noErr) return status;
  if (known->findApproved(*target.directory, address)) return noErr;
  if (inquiry_ && !inquiry_->isAbout(*name, *target.directory)) inquiry_.reset();
  if (!inquiry_) {
    inquiry_.emplace(bus_, *name, *target.directory);
    inquiryChanges_ = known->changes;
  }
  const auto outcome = inquiry_->outcome();
  if (!outcome) {
    if (Clock::now() < inquiry_->deadline()) return std::nullopt;
    disconnect();
    return connectionInvalid;
  }
  address = inquiry_->address();
  if (*outcome == noErr && known->changes == inquiryChanges_)
    known->approve(*target.directory, address);
  inquiry_.reset();
  return outcome;
}

// Trusts only the record of a present owner, because the bus tells when it goes. Always asks about
// an absent one: the news of an owner may have reached another connection first. Asks, too, when a
// direct connection tells of the end of a process before the bus does.
OSErr BusSender::findOwner(Lock& lock, const std::string& identifier,
                           std::shared_ptr<KnownTarget>& target) {
  if (const OSErr status = watchOwner(identifier, target); status != noErr) return status;
  if (target->isTrusted()) return noErr;
  if (target->link && target->link->isClosed()) target->link.reset();
  PresenceQuestion question{target, {}, {}, false};
  const OSErr status = send(question);
  return status == noErr ? await(lock, question) : status;
}

OSErr BusSender::send(PresenceQuestion& question) {
  if (question.send(bus_)) return noErr;
  disconnect();
  return connectionInvalid;
}

OSErr BusSender::await(Lock& lock, const PresenceQuestion& question) {
  const auto deadline = Clock::now() + busPatience;
  const bool isSame = bus_ == question.bus;
  const bool answered = isSame && runUntil(lock, deadline, [&] { return question.done; });
  if (!answered && bus_ == question.bus) disconnect();
  if (bus_ != question.bus) return connectionInvalid;
  return question.target->present ? noErr : procNotFound;
}

BusSender::Question::Question(const std::string& bundleID) {
  Lock lock(sender_.mutex_);
  if (!sender_.connect(lock)) return;
  if (sender_.watchOwner(bundleID, question_.target) == noErr) sender_.send(question_);
}

BusSender::Question::~Question() {
  const Lock lock(sender_.mutex_);
  question_.slot.reset();
}

bool BusSender::Question::isAffirmed() {
  Lock lock(sender_.mutex_);
  return question_.slot && sender_.await(lock, question_) == noErr;
}

// Stores the address of the owner, if its executable lies in the directory. A message to that
// address goes to the process that was checked, even if the name passes to another one.
OSErr BusSender::approveOwner(Lock& lock, const std::shared_ptr<KnownTarget>& target,
                              const std::string& directory, std::string& address) {
  if (target->findApproved(directory, address)) return noErr;
  const Bus bus = bus_;
  const std::uint64_t changes = target->changes;
  OwnerInquiry inquiry(bus, target->name, directory);
  runUntil(lock, inquiry.deadline(), [&] { return inquiry.outcome().has_value(); });
  const OSErr outcome = inquiry.outcome().value_or(connectionInvalid);
  if (outcome == connectionInvalid && bus_ == bus) disconnect();
  if (bus_ != bus) return connectionInvalid;
  address = inquiry.address();
  if (outcome == noErr && target->changes == changes) target->approve(directory, address);
  return outcome;
}

// Finds the record of a target, and has the bus tell of its owner from now on.
OSErr BusSender::watchOwner(const std::string& identifier, std::shared_ptr<KnownTarget>& target) {
  target = targets_.find(identifier);
  if (target && target->watch) return noErr;
  const auto name = busNameOfIdentifier(identifier);
  if (!name) return paramErr;
  target = targets_.findOrAdd(identifier, *name);
  if (target->watchOwner(bus_.get())) return noErr;
  disconnect();
  return connectionInvalid;
}

// --- Direct connections

// Returns the open direct connection to a target; null without one, and if the target's executable
// was not found in its directory yet.
std::shared_ptr<DirectLink> BusSender::openLinkTo(const RPCTarget& target) {
  const auto& known = targets_.find(target.bundleID);
  if (!known || !known->hasOpenLink()) return nullptr;
  if (target.directory && !known->link->isApprovedFor(*target.directory)) return nullptr;
  return known->link;
}

// Returns it if the caller's event may go there now: what was started before comes first.
std::shared_ptr<DirectLink> BusSender::linkTo(const RPCTarget& target) {
  if (links_.empty()) return nullptr;
  followBus();
  if (requests_.hasUnsent()) sendStarted();
  return requests_.hasUnsent() ? nullptr : openLinkTo(target);
}

// Hears of watchers, on a new bus as well if the last one ended: events that go directly need none.
void BusSender::followBus() {
  if (!bus_ && !isBehindProxy_ && Clock::now() - lastOpening_ >= openingInterval) open();
  if (!bus_) return;
  drain();
  if (bus_) static_cast<void>(isGreeted());
}

// Sees to it that an event can go over the bus: no order is lost, and no peer that takes nothing is
// sent more and more.
OSErr BusSender::leaveLink(KnownTarget& target, const RPCEvent& event) {
  if (!target.link) return noErr;
  target.link->leave();
  if (target.link->isDraining()) target.hadLink = true;
  // One that never took a connection may be one that answers no such offer.
  if (!target.link->isOffered() || !target.hadLink) return noErr;
  const std::size_t size = sizeOf(event);
  if (target.untaken + size > mostUntaken) return errAETimeout;
  target.untaken += size;
  return noErr;
}

// Offers the owner of a name a direct connection, if it does not have one and did not refuse one.
// The event before it was sent, even if memory runs out here.
void BusSender::offerLink(KnownTarget& target, const std::string& address) {
  dropExceptions([&] { makeOffer(target, address); });
}

void BusSender::makeOffer(KnownTarget& target, const std::string& address) {
  if (!mayConnectDirectly() || target.hasNoOffer) return;
  if (target.link && (target.link->isOffered() || target.link->isRefused())) return;
  if (target.events < eventsBeforeOffer && ++target.events < eventsBeforeOffer) return;
  for (const auto& link : links_) {
    const bool isAsked = !outlivedItsBus(*link) || link->hasEnded();
    if (link->isOver() && link->hasPosts() && isAsked) askOnBus(*link);
  }
  std::erase_if(links_, [](const auto& link) { return link->isOver() && !link->hasPosts(); });
  if (links_.size() >= mostLinks) return;
  watchers_.ask(bus_.get());
  // A relay of the connection that is no proxy loses descriptors, and the bus would end the
  // connection. The bus has told this process's ID before it answers the question for watchers.
  const bool isRelayed = foreignProcess_ != 0 && !isBehindProxy_;
  if (watchers_.mayBeThere() || isRelayed || !bus_) return;
  if (!target.watchOwner(bus_.get())) return disconnect();
  auto link = DirectLink::offer(bus_, address, target.identifier);
  target.hasNoOffer = link == nullptr;
  if (!link) return;
  links_.push_back(link);
  target.link = std::move(link);
  target.untaken = 0;
}

bool BusSender::isWritten() const {
  std::uint64_t queued = 0;
  return sd_bus_get_n_queued_write(bus_.get(), &queued) >= 0 && queued == 0;
}

// A message that the socket did not take at once must not wait for the next send, which may never
// come.
bool BusSender::flush(Lock& lock) {
  if (isWritten()) return true;
  const Bus bus = bus_;
  return runUntil(lock, Clock::now() + busPatience, [&] { return bus_ == bus && isWritten(); });
}

// Introduces this process to the owner of a name before the first event for it, if a proxy hides
// this process.
void BusSender::introduce(const std::string& identifier, const std::string& address) {
  std::shared_ptr<KnownTarget> target;
  if (!isBehindProxy_ || watchOwner(identifier, target) != noErr || target->introduction) return;
  target->introduction = Introduction::send(bus_.get(), address);
}

void BusSender::onDirectReply(RPCTransport::Answer answer, std::size_t size, void* pending) {
  auto& call = *static_cast<Pending*>(pending);
  call.direct = std::move(answer);
  call.size = size;
  call.done = true;
}

void BusSender::onDirectAnswer(RPCTransport::Answer answer, std::size_t size, void* started) {
  auto& request = *static_cast<Started*>(started);
  request.size = size;
  request.finish(std::move(answer));
}

int BusSender::onReply(sd_bus_message* message, void* pending, sd_bus_error*) {
  auto& call = *static_cast<Pending*>(pending);
  call.reply.reset(sd_bus_message_ref(message));
  call.done = true;
  return 1;
}

int BusSender::onAnswer(sd_bus_message* message, void* started, sd_bus_error*) {
  auto& request = *static_cast<Started*>(started);
  RPCTransport::Answer answer{paramErr, {}};  // if memory runs out
  dropExceptions([&] { answer = readAnswer(message, request.size); });
  request.finish(std::move(answer));
  return 1;
}

}  // namespace qbdkr
