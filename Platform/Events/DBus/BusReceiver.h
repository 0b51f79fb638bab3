#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Events/DBus/MemoryRelief.h"
#include "Platform/Events/DBus/PeerInquiry.h"
#include "Platform/Events/DBus/SdBus.h"
#include "Platform/Events/RPCHandler.h"
#include "Platform/Loop/EventSourceLinux.h"

namespace qbdkr {

// The room for events that wait until their senders are known. When it is full the connection is
// not read, and the backlog stays on the bus. One event is always taken, whatever its size.
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
// identifier and answers the one method. It belongs to the main run loop; call only the members
// that say so from other threads. While a handler is installed, a lost connection is made again,
// and the name claimed again.
//
// It never waits on that connection: the bus library would read the whole backlog into memory. The
// events of a new sender are parked until it is known, while those of others are handled.
class BusReceiver {
 public:
  static BusReceiver& shared();

  // Any thread. The handler is called on the main run loop.
  void setHandler(RPCTransport::Handler handler);
  void removeHandler();

  // Tells that the bus can be reached (again). Any thread.
  void busAppeared();

 private:
  // An event, and its message, which is answered.
  struct Received {
    BusMessage message;
    RPCEvent event;
    std::size_t size = 0;
  };

  // A process that has sent an event. While it is connected it keeps its unique name, and counts as
  // the application that it was at first. It is kept until it has disconnected and its last event
  // is handled: a process that reports and exits is gone before that. If too many senders are
  // known, those without parked events are forgotten earlier.
  struct Sender {
    std::optional<std::string> bundleID;  // absent if it is not an application
    bool isKnown = false;                 // false during the inquiry
    std::unique_ptr<PeerInquiry::Question> question;
    std::deque<Received> parked;
    BusSlot watch;
    bool isGone = false;

    [[nodiscard]] bool isReady() const { return isKnown && parked.empty(); }
  };

  BusReceiver() = default;

  void connect();
  void disconnect();
  void reconnectLater();
  void tryAgainLater();
  bool attach();
  void pause();
  void resume();

  void receive(sd_bus_message* message);
  Sender* meet(const char* name);
  BusSlot watch(const char* name);
  void park(Sender& sender, Received&& received);
  void settle(std::string_view name, std::optional<std::string> bundleID);
  void handleParked(std::string_view name);
  void handle(const Received& received, const std::optional<std::string>& sender);
  void forgetSenders();

  static int onCall(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onDisconnected(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onNameClaimed(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onSenderGone(sd_bus_message* message, void* self, sd_bus_error* error);
  static int onRetry(sd_event_source* source, std::uint64_t due, void* self);
  static const sd_bus_vtable methods[];

  RPCHandler handler_;

  // Main thread only.
  UniqueBus bus_;
  BusSlot object_;
  PeerInquiry inquiry_;
  std::map<std::string, Sender, std::less<>> senders_;  // by unique name
  ParkingSpace parking_;
  bool isPaused_ = false;
  MemoryRelief relief_;
  EventSource retry_;
  std::chrono::microseconds retryDelay_{0};
};

}  // namespace qbdkr
