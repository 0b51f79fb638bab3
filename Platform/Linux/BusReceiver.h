#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "Platform/AppleEvent.h"
#include "Platform/Linux/SdBus.h"
#include "Platform/RPCHandler.h"

namespace qbdkr {

// The connection on which this process receives: it owns the name of the process's bundle
// identifier and answers the one method. It belongs to the main run loop; only the functions marked
// so may be called from other threads. It is made again, names claimed again, for as long as a
// handler is installed.
class BusReceiver {
 public:
  static BusReceiver& shared();

  // Any thread. The handler is called on the main run loop.
  void setHandler(AppleEventTransport::EventHandler handler);
  void removeHandler();

  // Any thread: the bus can be reached (again).
  void busAppeared();

 private:
  // A process that has sent something. Its unique name is its own for as long as it is connected.
  struct Sender {
    pid_t processID = 0;
    BusSlot watch;
  };

  BusReceiver() = default;

  void connect();
  void disconnect();
  void tryAgainLater();
  bool attach();
  pid_t processOfSender(sd_bus_message* message);
  void forgetSenders();
  int handleCall(sd_bus_message* message);

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
  std::map<std::string, Sender, std::less<>> senders_;
  sd_event_source* retry_ = nullptr;
  std::uint64_t retryDelay_ = 0;
};

}  // namespace qbdkr
