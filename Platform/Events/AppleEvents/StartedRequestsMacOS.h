#pragma once

#include <CoreServices/CoreServices.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "Platform/Events/AppleEvents/EventDescriptorMacOS.h"
#include "Platform/Events/PendingRequests.h"

namespace qbdkr {

// The requests that were started, whose caller does not wait.
//
// A thread sends them with kAEQueueReply, minds their deadlines, and calls the completions. The
// replies come to the main run loop as events of their own, matched by their return ID. A wait in
// that thread instead (kAEWaitReply) would take one thread for each request: no other thread can
// end it, so one silent target would hold up the deadlines and cancellations of all.
//
// Never destroyed: the Apple Event Manager holds its address. Any thread.
class StartedRequests {
 public:
  // Makes the message of an event.
  using Make = std::function<OSErr(const RPCTarget&, const RPCEvent&, EventDescriptor& message)>;

  explicit StartedRequests(Make make);
  StartedRequests(const StartedRequests&) = delete;
  StartedRequests& operator=(const StartedRequests&) = delete;
  ~StartedRequests() = default;

  // Does what RPCTransport::start() does.
  bool start(const RPCTarget& target, RPCEvent event, const RequestLimits& limits,
             RPCTransport::Completion completion);

  // Blocks until those that were started before have been sent, so that what follows comes after
  // them. The Apple Event Manager may hold that up, as it does any send.
  void awaitSent();

 private:
  struct Started : PendingRequest {
    using PendingRequest::PendingRequest;
    AEReturnID identifier = 0;  // 0 before it is sent
  };

  bool startWorker();
  void work();
  void wake();
  void sendNext(const PendingRequests::Request& request);
  OSErr send(Started& request);
  void complete(const PendingRequests::Requests& finished);
  OSErr take(const AEDesc& reply);
  static ::OSErr onReply(const ::AppleEvent* incoming, ::AppleEvent* reply, SRefCon self);

  const Make make_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool hasWorker_ = false;
  std::thread::id worker_;
  bool isStirred_ = false;
  bool isSending_ = false;
  std::map<AEReturnID, PendingRequests::Request> waiting_;
  PendingRequests requests_;
};

}  // namespace qbdkr
