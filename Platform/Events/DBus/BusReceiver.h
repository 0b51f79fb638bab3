#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Base/Descriptor.h"
#include "Platform/Events/DBus/DiagnosisService.h"
#include "Platform/Events/DBus/DirectPeer.h"
#include "Platform/Events/DBus/MemoryRelief.h"
#include "Platform/Events/DBus/NameClaim.h"
#include "Platform/Events/DBus/PeerInquiry.h"
#include "Platform/Events/DBus/SdBus.h"
#include "Platform/Events/RPCHandler.h"
#include "Platform/Loop/EventSourceLinux.h"

namespace qbdkr {

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

// The connection on which this process receives: it owns the name of the process's bundle
// identifier, takes events, and answers whether it has taken them. It belongs to the main run loop;
// call only the members that say so from other threads. While a handler is installed, a lost
// connection is made again, and the name claimed again.
//
// It never waits on that connection once that has its name: the bus library would read the whole
// backlog into memory. The events of a new sender are parked until it is known, while those of
// others are handled. No event is handled inside a callback of the bus library, which could then
// not be used by a handler that takes turns of the run loop.
//
// A sender that the bus has told of may go on sending on a direct connection. Its events wait in
// the one row with those from the bus, in the order in which they are read. Only a few of them do,
// the others wait in the ring of that connection: so no such sender holds up another one, or the
// bus. Direct connections, and the events of known senders, outlive the connection to the bus.
//
// A process that connects to the bus anew is another sender there. Its events wait until those that
// it sent before, as the sender that has left, are handled.
class BusReceiver {
 public:
  static BusReceiver& shared();

  // Any thread. The handler is called on the main run loop.
  void setHandler(RPCTransport::Handler handler);
  void removeHandler();

  // See RPCTransport. Any thread.
  void awaitName(std::chrono::steady_clock::time_point deadline);

  // Tells that the bus can be reached (again). Any thread.
  void busAppeared();

  // See RPCTransport. Any thread.
  void setDiagnoser(const std::function<std::string()>& diagnoser) {
    diagnosis_.setDiagnoser(diagnoser);
  }

  // See RPCTransport.
  void watchStanding(const std::function<void()>& onLost);
  [[nodiscard]] RPCTransport::Standing standing();
  void whenHandled(std::function<void()> done);

 private:
  using Clock = std::chrono::steady_clock;

  // An event, and where its answer goes: to the message from the bus, or to the direct connection.
  // Without an event it is the question whether those before it were taken.
  struct Received {
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
  struct Sender {
    PeerInquiry::Peer peer;
    bool isKnown = false;  // false during the inquiry
    std::unique_ptr<PeerInquiry::Question> question;
    std::deque<Received> parked;
    BusSlot watch;
    bool outlivedBus = false;   // it has left because the connection to the bus ended
    bool isIntroduced = false;  // which it is once: it is not forgotten as long as there is room
    std::shared_ptr<DirectPeer> direct;
    BusMessage offer;  // of that connection, which is not agreed to before the sender is known
    Descriptor progress;

    [[nodiscard]] bool isSettled() const { return isKnown && parked.empty() && !direct; }
  };
  using SharedSender = std::shared_ptr<Sender>;

  BusReceiver() = default;

  void connect();
  void disconnect();
  void outliveBus(const SharedSender& sender);
  void reconnectLater();
  void tryAgainLater();
  bool attach();
  void pause();
  void resume();

  void receive(sd_bus_message* message);
  void receiveQuestion(sd_bus_message* message);
  void receiveIntroduction(sd_bus_message* message);
  void receiveOffer(sd_bus_message* message);
  void receiveBeginning(sd_bus_message* message);
  void take(Received&& received);
  void takeDirect(const SharedSender& sender, direct::Request&& request);
  [[nodiscard]] std::size_t newcomers() const;
  SharedSender find(std::string_view name) const;
  SharedSender meet(const char* name, std::optional<Introduction> introduction = {});
  void inquire(const SharedSender& sender, const char* name,
               std::optional<Introduction> introduction);
  BusSlot watch(const std::string& rule, sd_bus_message_handler_t onChange);
  void park(const SharedSender& sender, Received&& received);
  Received unpark(Sender& sender);
  void settle(const SharedSender& sender, PeerInquiry::Peer peer);
  void agree(const SharedSender& sender);
  void handleParkedLater(const SharedSender& sender);
  void handleParked(const SharedSender& sender);
  bool awaitsEarlier(const SharedSender& sender);
  void handle(const Received& received, const std::optional<std::string>& sender);
  void dropParked(Sender& sender);
  void forgetDeparted(const SharedSender& sender);
  void endDirect(const SharedSender& sender);
  void closeDirect();
  void readAllDirect();
  void forgetSenders();
  void watchForgotten();
  void callHandled();

  static int onCall(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onQuestion(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onIntroduction(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onOffer(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onBeginning(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onDisconnected(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onSenderGone(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onForgottenGone(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onAllRead(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onRetry(sd_event_source* source, std::uint64_t due, void* self);
  static const sd_bus_vtable methods[];
  static const sd_bus_vtable deliveryMethods[];
  static const sd_bus_vtable identityMethods[];
  static const sd_bus_vtable directMethods[];

  RPCHandler handler_;
  DiagnosisService diagnosis_;
  NameClaim claim_;

  // Main thread only.
  UniqueBus bus_;
  BusSlot object_;
  BusSlot delivery_;
  BusSlot identity_;
  BusSlot direct_;
  bool isBehindProxy_ = false;
  PeerInquiry inquiry_;
  std::map<std::string, SharedSender, std::less<>> senders_;  // on the bus, by unique name
  std::list<SharedSender> departed_;      // that have left it, and their events are to be handled
  std::vector<SharedSender> held_;        // that wait for such a one
  std::set<SharedSender> directSenders_;  // those with a direct connection
  std::size_t parked_ = 0;                // all events that wait
  ParkingSpace parking_;
  bool isPaused_ = false;
  MemoryRelief relief_;
  EventSource retry_;
  std::chrono::microseconds retryDelay_{0};

  // For a process that ends by itself.
  std::function<void()> onLost_;                   // empty if none is watched
  Clock::time_point lastPresence_ = Clock::now();  // of an event or a sender
  std::optional<Clock::time_point> lostSince_ = Clock::now();
  // Senders that were forgotten and may still be there, if the standing is watched.
  std::set<std::string, std::less<>> forgotten_;
  BusSlot forgottenWatch_;
  bool isCrowded_ = false;  // some were not remembered here either
  std::function<void()> onHandled_;
  BusSlot allRead_;
  bool isAllRead_ = false;
};

}  // namespace qbdkr
