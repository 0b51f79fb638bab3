#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Base/Descriptor.h"
#include "Platform/Events/DBus/BusWatchers.h"
#include "Platform/Events/DBus/DirectLink.h"
#include "Platform/Events/DBus/KnownTargets.h"
#include "Platform/Events/DBus/OwnerInquiry.h"
#include "Platform/Events/DBus/SdBus.h"
#include "Platform/Events/PendingRequests.h"
#include "Platform/Events/RPCTransport.h"

namespace qbdkr {

// The one connection on which all threads of the process send.
//
// A bus object serves one thread at a time: it is only used under the mutex, which is never held
// while waiting. One of the waiting threads reads: it polls the socket without the mutex, and hands
// the others their answers. One connection for all keeps the order in which the process sent its
// events, between threads too.
//
// Requests that were started are sent, and their deadlines minded, by a thread that is made for the
// first one. A thread that posts or asks first sends those that were started before. In a forked
// child an object of the parent is not used any more.
//
// An application that is sent more than one event is offered a direct connection, which takes the
// events for it from then on and outlives the connection to the bus. One of the threads that wait
// reads all connections.
class BusSender {
 public:
  class Question;

  // Returns that of this process, which is never destroyed: threads send until the process ends. A
  // forked child gets its own.
  static BusSender& shared();

  // Starts a request, as RPCTransport::start() does; one that is refused ends with that status.
  bool start(const RPCTarget& target, RPCEvent event, const RequestLimits& limits,
             RPCTransport::Completion completion, OSErr refusal);

  // Posts an event to its target, if that is running. Does not wait for the target.
  OSErr post(const RPCTarget& target, const RPCEvent& event);

  // Sends an event and waits for the answer. A result beyond the bounds is refused like any other
  // breach of the contract.
  RPCTransport::Answer ask(const RPCTarget& target, const RPCEvent& event);

  // Waits until the targets have taken what was posted: see RPCTransport::flush().
  OSErr flush(std::chrono::steady_clock::time_point deadline);

  // Returns the process ID under which the bus knows this process, if it is another one: behind a
  // proxy of the bus, and across process namespaces. Senders and targets cannot be identified then.
  // Does not wait.
  [[nodiscard]] std::optional<pid_t> foreignProcess() const;

 private:
  using Bus = std::shared_ptr<sd_bus>;
  using Clock = std::chrono::steady_clock;
  using Lock = std::unique_lock<std::mutex>;

  // A method call in progress; lives on the stack of the thread that waits for it.
  struct Pending {
    BusMessage reply;                            // from the bus
    std::optional<RPCTransport::Answer> direct;  // or by the direct connection
    std::size_t size = 0;                        // of that one's text
    bool done = false;
  };
  // A question to a target, whether it has taken what was posted to it.
  struct Delivery {
    std::string address;
    std::uint64_t lastPost = 0;
    Pending answer;
    BusSlot slot;
    std::shared_ptr<DirectLink> link;  // empty if the bus was asked
    direct::Serial serial = 0;

    Delivery() = default;
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;
    ~Delivery();
  };
  // A request that was started.
  struct Started : PendingRequest {
    using PendingRequest::PendingRequest;
    Bus bus;  // outlives the slot
    BusSlot slot;
    std::shared_ptr<DirectLink> link;  // or the direct connection, and the number there
    direct::Serial serial = 0;
    std::size_t size = 0;  // of the reply's text
  };

  BusSender();

  RPCTransport::Answer call(const RPCTarget& target, const RPCEvent& event, std::size_t& size);
  OSErr postOnBus(Lock& lock, const RPCTarget& target, const RPCEvent& event);
  bool askDirectly(const RPCTarget& target, const RPCEvent& event, Pending& pending);
  RPCTransport::Answer awaitDirect(Lock& lock, Pending& pending, std::size_t& size);
  bool connect(Lock& lock);
  bool open();
  bool isGreeted();
  bool sendEarlier(Lock& lock);
  void sendStarted();
  bool sendDirectly(Started& request);
  void sendStarted(Started& request, const std::string& address);
  std::optional<OSErr> findAddress(const RPCTarget& target, std::string& address);
  bool startWorker();
  void work();
  void awaitNews(Lock& lock);
  void complete(Lock& lock, const PendingRequests::Requests& finished);
  void stir() const;
  void awaitStir(Lock& lock, Clock::time_point deadline);
  OSErr failedToSend(int error);
  void identify();
  void disconnect();
  void drain();
  void wakeOthers();
  void wakeReader();
  OSErr findOwner(Lock& lock, const std::string& identifier, std::shared_ptr<KnownTarget>& target);
  OSErr send(PresenceQuestion& question);
  OSErr await(Lock& lock, const PresenceQuestion& question);
  OSErr approveOwner(Lock& lock, const std::shared_ptr<KnownTarget>& target,
                     const std::string& directory, std::string& address);
  OSErr watchOwner(const std::string& identifier, std::shared_ptr<KnownTarget>& target);
  [[nodiscard]] bool isWritten() const;
  bool flush(Lock& lock);
  void introduce(const std::string& identifier, const std::string& address);
  std::shared_ptr<DirectLink> openLinkTo(const RPCTarget& target);
  std::shared_ptr<DirectLink> linkTo(const RPCTarget& target);
  void followBus();
  OSErr leaveLink(KnownTarget& target, const RPCEvent& event);
  void offerLink(KnownTarget& target, const std::string& address);
  void makeOffer(KnownTarget& target, const std::string& address);
  void awaitReader(Lock& lock, Clock::time_point deadline);
  bool read(Lock& lock, Clock::time_point deadline, sd_bus* bus);
  void readLinks();
  [[nodiscard]] bool isWorker() const { return std::this_thread::get_id() == worker_; }
  void askLinksWhetherTaken(std::list<Delivery>& deliveries);
  [[nodiscard]] bool outlivedItsBus(const DirectLink& link) const;
  void askOnBus(DirectLink& link);
  std::uint64_t* lastPostTo(const std::string& address);
  int askWhetherTaken(sd_bus* bus, Delivery& delivery);
  OSErr settle(const Delivery& delivery);
  template <class Done>
  bool runUntil(Lock& lock, Clock::time_point deadline, Done done);
  template <class Done>
  bool readUntil(Lock& lock, Clock::time_point deadline, Done done);
  void wakeWaiting();

  static void onDirectReply(RPCTransport::Answer answer, std::size_t size, void* pending);
  static void onDirectAnswer(RPCTransport::Answer answer, std::size_t size, void* started);
  static int onReply(sd_bus_message* message, void* pending, sd_bus_error* error);
  static int onAnswer(sd_bus_message* message, void* started, sd_bus_error* error);
  static int onOwnProcess(sd_bus_message* message, void* self, sd_bus_error* error);

  std::atomic<pid_t> foreignProcess_{0};  // 0 if unknown

  std::mutex mutex_;
  std::condition_variable progress_;
  Descriptor wake_;
  Bus bus_;  // empty without a connection
  // Counts connections: a waiting thread notices the end of its own.
  std::uint64_t generation_ = 0;
  Clock::time_point greetingDeadline_;  // when the bus has had its time to greet the connection
  bool wasGreeted_ = false;
  bool isBehindProxy_ = false;
  bool reading_ = false;  // a thread polls the sockets
  unsigned waiting_ = 0;  // threads that wait for that thread
  Clock::time_point lastOpening_;
  Clock::time_point lastDrain_;
  KnownTargets targets_;
  std::vector<std::shared_ptr<DirectLink>> links_;  // those that may have answers to come
  BusWatchers watchers_;                            // while there may be any, all stays on the bus
  // The last post to each address of which no flush knows yet that it was taken.
  std::map<std::string, std::uint64_t> posts_;
  std::uint64_t lastPost_ = 0;
  bool hasLostPosts_ = false;  // a connection ended before they were known to be taken

  PendingRequests requests_;
  std::optional<OwnerInquiry> inquiry_;  // about the target of the first one to be sent
  std::uint64_t inquiryChanges_ = 0;     // of that owner, when it was begun
  std::mutex workerMutex_;               // guards the making of the thread
  std::thread::id worker_;               // set by the thread itself
  Descriptor stir_;                      // is readable if the thread has something to do
  bool hasWorker_ = false;
  bool isStirred_ = false;      // it was read since
  bool isWorkerAside_ = false;  // the thread waits while another one reads
};

// Asks the bus whether events reach an application. The bus answers while the caller does its other
// work. Waits for the bus if the process is not connected to it yet, 5 s at most.
class BusSender::Question {
 public:
  explicit Question(const std::string& bundleID);
  Question(const Question&) = delete;
  Question& operator=(const Question&) = delete;
  ~Question();

  // Waits for the answer, 5 s at most. False if the bus does not tell.
  [[nodiscard]] bool isAffirmed();

 private:
  BusSender& sender_ = shared();
  PresenceQuestion question_;
};

}  // namespace qbdkr
