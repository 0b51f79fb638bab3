#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Base/Descriptor.h"
#include "Platform/Events/DBus/DirectPeer.h"
#include "Platform/Events/DBus/PeerInquiry.h"
#include "Platform/Events/DBus/SdBus.h"
#include "Platform/Events/RPCTransport.h"

namespace qbdkr {

// An event, and where its answer goes: to the message from the bus, or to the direct connection.
// Without an event it is the question whether those before it were taken.
struct ReceivedEvent {
  BusMessage message;
  std::shared_ptr<DirectPeer> direct;
  direct::Serial serial = 0;
  bool expectsAnswer = true;
  bool takesRoom = true;  // of the parking space
  std::optional<RPCEvent> event;
  std::size_t size = 0;
};

// A process that has sent an event. While it is connected it keeps its unique name, and counts as
// the application that it was at first. It is kept until it has disconnected and its last event
// is handled: a process that reports and exits is gone before that. If too many senders are
// known, those without parked events are forgotten earlier.
struct KnownSender {
  std::string name;
  std::uint64_t number = 0;  // in the order in which they came
  PeerInquiry::Peer peer;
  bool isKnown = false;  // false during the inquiry
  std::unique_ptr<PeerInquiry::Question> question;
  std::deque<ReceivedEvent> parked;
  bool hasTurn = false;  // a task of the run loop handles the first of these
  BusSlot watch;
  BusSlot presence;           // the question whether it left before the watch
  bool isOnBus = true;        // as far as the connection that receives tells
  bool outlivedBus = false;   // it has left because that connection ended
  bool isIntroduced = false;  // which it is once: it is not forgotten as long as there is room
  std::shared_ptr<DirectPeer> direct;
  BusMessage offer;  // of that connection, which is not agreed to before the sender is known
  Descriptor progress;
  // Its place among those that have left, made before: it takes that without memory.
  std::map<std::uint64_t, std::shared_ptr<KnownSender>>::node_type place;

  // Tells whether nothing of it is to be handled now, or to be found out.
  [[nodiscard]] bool isSettled() const {
    return (isKnown || outlivedBus) && parked.empty() && !direct;
  }
};

// The room for events from the bus that wait until their senders are known and their turn has come.
// When it is full the connection is not read, and the backlog stays on the bus. One event is always
// taken, whatever its size.
class ParkingSpace {
 public:
  void take(std::size_t bytes);
  void giveBack(std::size_t bytes);
  [[nodiscard]] bool isFull() const;

 private:
  std::size_t events_ = 0;
  std::size_t bytes_ = 0;
};

// The senders of a process, each with a row of events that wait. A row moves on when its sender is
// known, one event in a turn of the main run loop: no sender holds up another one.
//
// A process that connects to the bus anew is another sender there. Its row waits until those are
// empty that it has left behind, so its events stay in order.
//
// Main thread only.
class KnownSenders {
 public:
  using Sender = std::shared_ptr<KnownSender>;
  // Handles an event of an application, or of no application.
  using Handler =
      std::function<void(const ReceivedEvent& event, const std::optional<std::string>& bundleID)>;

  explicit KnownSenders(Handler handler) : handler_(std::move(handler)) {}

  // Returns a sender on the bus by its unique name; null if it is not known.
  [[nodiscard]] Sender find(std::string_view name) const;
  void add(const std::string& name, const Sender& sender);
  // Takes the outcome of the inquiry. Needs no memory.
  void settle(const Sender& sender, PeerInquiry::Peer peer);
  // Notes that a sender has left the bus. It is kept as long as anything of it is to be handled.
  void depart(const Sender& sender);
  // Notes that the connection to the bus has ended: all senders have left it, and the events of
  // those that are not known are dropped. Needs no memory.
  void outliveBus();
  // Forgets a sender that has left, if nothing of it is to be handled any more.
  void forgetDeparted(const Sender& sender);
  // Tells whether there are so many on the bus that some are to be forgotten.
  [[nodiscard]] bool isCrowded() const;
  // Forgets senders of which nothing is to be handled now. Returns the names of those that may
  // still be on the bus.
  std::vector<std::string> forgetSettled();

  // Adds an event to the row of its sender.
  void park(const Sender& sender, ReceivedEvent&& received);
  // Tells whether the room for events from the bus is full. The handler is called after each turn.
  [[nodiscard]] bool isFull() const { return parking_.isFull(); }
  // Drops the events of a sender, or of all of them, unanswered.
  void drop(KnownSender& sender);
  void dropAll();

  [[nodiscard]] bool hasParked() const { return parked_ > 0; }
  [[nodiscard]] bool isEmpty() const { return present_.empty() && departed_.empty(); }
  // Counts the senders whose introductions are looked into: each holds a descriptor.
  [[nodiscard]] std::size_t newcomers() const;

 private:
  ReceivedEvent unpark(KnownSender& sender);
  void takePlace(const Sender& sender);
  void giveTurn(const Sender& sender);
  void takeTurnLater(const Sender& sender);
  void giveMissingTurns();
  void takeTurn(const Sender& sender);
  void hold(const Sender& sender);
  void releaseHeld();
  [[nodiscard]] bool awaitsEarlier(const Sender& sender);

  const Handler handler_;
  std::map<std::string, Sender, std::less<>> present_;  // on the bus, by unique name
  std::uint64_t added_ = 0;                             // all senders so far
  std::map<std::uint64_t, Sender> departed_;            // that have left it, by their number
  std::set<Sender> held_;                               // that wait for a departed one
  bool isTurnMissing_ = false;                          // a row has none, for want of memory
  std::size_t parked_ = 0;                              // all events that wait
  ParkingSpace parking_;
};

}  // namespace qbdkr
