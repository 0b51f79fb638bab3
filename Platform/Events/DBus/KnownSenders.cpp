#include "Platform/Events/DBus/KnownSenders.h"

#include <algorithm>
#include <exception>
#include <utility>

#include <ClientComm/RunLoop.h>

namespace qbdkr {
namespace {

constexpr std::size_t mostSenders = 256;
constexpr std::size_t mostIntroduced = 4096;
constexpr std::size_t mostParkedEvents = 64;
constexpr std::size_t mostParkedBytes = std::size_t{2} << 20U;
constexpr std::size_t mostDirectEvents = 8;  // in the row of one sender

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

KnownSenders::Sender KnownSenders::find(std::string_view name) const {
  const auto found = present_.find(name);
  return found == present_.end() ? nullptr : found->second;
}

void KnownSenders::add(const std::string& name, const Sender& sender) {
  sender->name = name;
  sender->number = ++added_;
  std::map<std::uint64_t, Sender> made;
  made.emplace(sender->number, nullptr);
  sender->place = made.extract(made.begin());
  present_.emplace(name, sender);
}

// Adds a sender to those that have left.
void KnownSenders::takePlace(const Sender& sender) {
  if (sender->place.empty()) return;
  sender->place.mapped() = sender;
  departed_.insert(std::move(sender->place));
}

void KnownSenders::settle(const Sender& sender, PeerInquiry::Peer peer) {
  if (peer.isGone) takePlace(sender);  // its last events may come yet
  sender->peer = std::move(peer);
  sender->isKnown = true;
  takeTurnLater(sender);
}

void KnownSenders::depart(const Sender& sender) {
  if (sender->direct || !sender->parked.empty()) takePlace(sender);
  sender->isOnBus = false;
  present_.erase(sender->name);
  forgetDeparted(sender);
}

void KnownSenders::outliveBus() {
  for (const auto& [name, sender] : std::exchange(present_, {})) takePlace(sender);
  for (auto next = departed_.begin(); next != departed_.end();) {
    const Sender sender = (next++)->second;
    sender->question.reset();
    sender->watch.reset();
    sender->presence.reset();
    sender->isOnBus = false;
    sender->outlivedBus = true;
    if (!sender->isKnown) drop(*sender);
    forgetDeparted(sender);
  }
  releaseHeld();
}

void KnownSenders::forgetDeparted(const Sender& sender) {
  if (sender->isSettled() && !sender->isOnBus) departed_.erase(sender->number);
}

bool KnownSenders::isCrowded() const { return present_.size() >= mostSenders; }

std::vector<std::string> KnownSenders::forgetSettled() {
  const bool isFull = present_.size() >= mostIntroduced;
  std::vector<std::string> forgotten;
  std::erase_if(present_, [&](const auto& entry) {
    const Sender& sender = entry.second;
    if (!sender->isSettled() || (sender->isIntroduced && !isFull)) return false;
    if (!sender->peer.isGone) forgotten.push_back(sender->name);
    sender->isOnBus = false;
    forgetDeparted(sender);
    return true;
  });
  return forgotten;
}

// While a row holds events and its sender is known, it has a turn, or the sender is held. If memory
// was missing for that, the next event of any sender makes up for it.
void KnownSenders::park(const Sender& sender, ReceivedEvent&& received) {
  if (isTurnMissing_) giveMissingTurns();
  if (sender->isKnown) giveTurn(sender);
  const bool takesRoom = received.takesRoom;
  const std::size_t size = received.size;
  sender->parked.push_back(std::move(received));
  ++parked_;
  if (takesRoom) parking_.take(size);
  if (sender->direct && sender->parked.size() >= mostDirectEvents) sender->direct->setPaused(true);
}

ReceivedEvent KnownSenders::unpark(KnownSender& sender) {
  ReceivedEvent received = std::move(sender.parked.front());
  sender.parked.pop_front();
  --parked_;
  if (received.takesRoom) parking_.giveBack(received.size);
  if (sender.direct && sender.parked.empty()) sender.direct->setPaused(false);
  return received;
}

void KnownSenders::giveTurn(const Sender& sender) {
  if (sender->hasTurn) return;
  RunLoop::main().perform([this, sender] { takeTurn(sender); });
  sender->hasTurn = true;
}

void KnownSenders::takeTurnLater(const Sender& sender) {
  try {
    giveTurn(sender);
  } catch (const std::exception&) {
    isTurnMissing_ = true;
  }
}

void KnownSenders::giveMissingTurns() {
  isTurnMissing_ = false;
  for (const auto& [name, sender] : present_) {
    if (sender->isKnown && !sender->parked.empty()) takeTurnLater(sender);
  }
  for (const auto& [number, sender] : departed_) {
    if (sender->isKnown && !sender->parked.empty()) takeTurnLater(sender);
  }
}

// Handles the first event of a row; the loop's other work gets its turn before the next one. The
// handler may take turns of the loop, which handle later events and forget senders.
void KnownSenders::takeTurn(const Sender& sender) {
  sender->hasTurn = false;
  if (!sender->isKnown) return;
  sender->question.reset();
  if (sender->parked.empty()) return forgetDeparted(sender);  // it only introduced itself
  if (awaitsEarlier(sender)) return hold(sender);
  if (sender->parked.size() > 1) takeTurnLater(sender);
  const ReceivedEvent received = unpark(*sender);
  const auto bundleID = sender->peer.bundleID;
  forgetDeparted(sender);
  if (sender->parked.empty()) releaseHeld();
  handler_(received, bundleID);
}

void KnownSenders::hold(const Sender& sender) {
  try {
    held_.insert(sender);
  } catch (const std::exception&) {
    isTurnMissing_ = true;
  }
}

void KnownSenders::releaseHeld() {
  for (const Sender& sender : std::exchange(held_, {})) takeTurnLater(sender);
}

// Tells whether events come first that the same process has sent as an earlier sender, which has
// left. One that goes on on the bus has shut down its direct connection before. A sender that was
// gone when the bus was asked for it may be of the process of any that came after it, and one that
// the bus does not tell of any of those that a bus has left behind.
//
// No flood of senders that come and go holds up another one: it waits for earlier ones alone.
bool KnownSenders::awaitsEarlier(const Sender& sender) {
  const auto& process = sender->peer.process;
  const auto end = departed_.lower_bound(sender->number);
  for (auto next = departed_.begin(); next != end;) {
    const Sender earlier = (next++)->second;
    const auto& itsProcess = earlier->peer.process;
    const bool mayBeSame =
        process && itsProcess ? itsProcess == process : earlier->outlivedBus || !itsProcess;
    if (!mayBeSame) continue;
    if (earlier->direct) earlier->direct->readToEnd();
    if (!earlier->direct && !earlier->parked.empty()) return true;
  }
  return false;
}

void KnownSenders::drop(KnownSender& sender) {
  while (!sender.parked.empty()) unpark(sender);
}

void KnownSenders::dropAll() {
  for (const auto& [name, sender] : present_) drop(*sender);
  for (const auto& [number, sender] : departed_) drop(*sender);
  departed_.clear();
  held_.clear();
}

std::size_t KnownSenders::newcomers() const {
  const auto isNewcomer = [](const auto& entry) {
    return entry.second->isIntroduced && entry.second->question != nullptr;
  };
  return static_cast<std::size_t>(std::ranges::count_if(present_, isNewcomer) +
                                  std::ranges::count_if(departed_, isNewcomer));
}

}  // namespace qbdkr
