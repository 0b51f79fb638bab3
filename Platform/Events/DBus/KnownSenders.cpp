#include "Platform/Events/DBus/KnownSenders.h"

#include <algorithm>
#include <ranges>
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

void KnownSenders::settle(const Sender& sender, PeerInquiry::Peer peer) {
  takeTurnLater(sender);
  sender->peer = std::move(peer);
  sender->isKnown = true;
}

void KnownSenders::depart(std::string_view name) {
  const auto found = present_.find(name);
  const Sender& sender = found->second;
  if (sender->direct || !sender->parked.empty()) departed_.push_back(sender);
  present_.erase(found);
}

std::vector<KnownSenders::Sender> KnownSenders::outliveBus() {
  for (const auto& [name, sender] : std::exchange(present_, {})) departed_.push_back(sender);
  const std::vector<Sender> left(departed_.begin(), departed_.end());
  for (const Sender& sender : left) {
    sender->question.reset();
    sender->watch.reset();
    sender->outlivedBus = true;
    if (!sender->isKnown) drop(*sender);
    forgetDeparted(sender);
  }
  return left;
}

void KnownSenders::forgetDeparted(const Sender& sender) {
  if (sender->isSettled()) departed_.remove(sender);
}

bool KnownSenders::isCrowded() const { return present_.size() >= mostSenders; }

std::vector<std::string> KnownSenders::forgetSettled() {
  const bool isFull = present_.size() >= mostIntroduced;
  std::vector<std::string> forgotten;
  for (const auto& [name, sender] : present_) {
    if (sender->isSettled() && (!sender->isIntroduced || isFull)) forgotten.push_back(name);
  }
  for (const std::string& name : forgotten) present_.erase(name);
  return forgotten;
}

// While a row holds events and its sender is known, a task waits to handle the first one, or the
// sender is held.
void KnownSenders::park(const Sender& sender, ReceivedEvent&& received) {
  if (sender->isKnown && sender->parked.empty()) takeTurnLater(sender);
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

void KnownSenders::takeTurnLater(const Sender& sender) {
  RunLoop::main().perform([this, sender] { takeTurn(sender); });
}

// Handles the first event of a row; the loop's other work gets its turn before the next one. The
// handler may take turns of the loop, which handle later events and forget senders.
void KnownSenders::takeTurn(const Sender& sender) {
  if (!sender->isKnown) return;
  sender->question.reset();
  if (sender->parked.empty()) return forgetDeparted(sender);  // it only introduced itself
  if (awaitsEarlier(sender)) return held_.push_back(sender);
  if (sender->parked.size() > 1) takeTurnLater(sender);
  const ReceivedEvent received = unpark(*sender);
  const auto bundleID = sender->peer.bundleID;
  forgetDeparted(sender);
  if (sender->parked.empty()) {
    for (const Sender& held : std::exchange(held_, {})) takeTurnLater(held);
  }
  handler_(received, bundleID);
}

// Tells whether events come first that the same process has sent as a sender that has left. One
// that goes on on the bus has shut down its direct connection before. A process that the bus did
// not tell of may be any of those that a bus has left behind.
bool KnownSenders::awaitsEarlier(const Sender& sender) {
  for (auto next = departed_.begin(); next != departed_.end();) {
    const Sender earlier = *next++;
    if (earlier == sender) return false;
    const bool mayBeSame =
        sender->peer.process ? earlier->peer.process == sender->peer.process : earlier->outlivedBus;
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
  for (const Sender& sender : departed_) drop(*sender);
  departed_.clear();
  held_.clear();
}

std::size_t KnownSenders::newcomers() const {
  const auto isNewcomer = [](const Sender& sender) {
    return sender->isIntroduced && sender->question != nullptr;
  };
  const auto count = std::ranges::count_if(std::views::values(present_), isNewcomer) +
                     std::ranges::count_if(departed_, isNewcomer);
  return static_cast<std::size_t>(count);
}

}  // namespace qbdkr
