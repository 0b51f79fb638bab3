#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "Platform/Events/DBus/DiagnosisService.h"
#include "Platform/Events/DBus/KnownSenders.h"
#include "Platform/Events/DBus/MemoryRelief.h"
#include "Platform/Events/DBus/NameClaim.h"
#include "Platform/Events/DBus/PeerInquiry.h"
#include "Platform/Events/DBus/SdBus.h"
#include "Platform/Events/RPCHandler.h"
#include "Platform/Loop/EventSourceLinux.h"

namespace qbdkr {

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

  using Sender = KnownSenders::Sender;

  BusReceiver();

  void connect();
  void disconnect();
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
  void take(ReceivedEvent&& received);
  void takeDirect(const Sender& sender, direct::Request&& request);
  Sender meet(const char* name, std::optional<Introduction> introduction = {});
  void inquire(const Sender& sender, const char* name, std::optional<Introduction> introduction);
  BusSlot watch(const std::string& rule, sd_bus_message_handler_t onChange);
  void park(const Sender& sender, ReceivedEvent&& received);
  void settle(const Sender& sender, PeerInquiry::Peer peer);
  void agree(const Sender& sender);
  BusSlot askForPresence(KnownSender& sender);
  void noteGone(std::string_view name);
  void beginOrEndDirect(const Sender& sender);
  void handle(const ReceivedEvent& received, const std::optional<std::string>& sender);
  void endDirect(const Sender& sender);
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
  static int onPresence(sd_bus_message* message, void* sender, sd_bus_error* error);
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
  KnownSenders senders_;
  std::set<Sender> directSenders_;  // those with a direct connection
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
