#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <utility>

#include <ClientComm/RequestLimits.h>

#include "Platform/Base/ForkSafeMutex.h"
#include "Platform/Events/CancellationState.h"
#include "Platform/Events/RPCEvent.h"
#include "Platform/Events/RPCTransport.h"

namespace qbdkr {

class PendingRequests;

// One request that was started and whose completion has not been called.
class PendingRequest : public CancellationListener,
                       public std::enable_shared_from_this<PendingRequest> {
 public:
  PendingRequest(RPCTarget to, RPCEvent what, RequestLimits within,
                 RPCTransport::Completion whenOver)
      : target_(std::move(to)),
        event_(std::move(what)),
        limits_(std::move(within)),
        completion_(std::move(whenOver)) {}

  // Ends the request, if it has not ended: its completion is due. Any thread; does not wait.
  void finish(RPCTransport::Answer answer) noexcept;

  void onCancel() noexcept override { finish({userCanceledErr, {}}); }

  [[nodiscard]] const RPCTarget& target() const { return target_; }
  [[nodiscard]] const RPCEvent& event() const { return event_; }
  [[nodiscard]] const RequestLimits& limits() const { return limits_; }

  // Gives back the memory of the event, which was sent. For the thread that sent it.
  void forgetEvent() { event_ = {}; }

 private:
  friend class PendingRequests;
  using List = std::list<std::shared_ptr<PendingRequest>>;
  using Deadlines = std::multimap<RequestLimits::Clock::time_point, PendingRequest*>;

  const RPCTarget target_;
  RPCEvent event_;
  const RequestLimits limits_;
  const RPCTransport::Completion completion_;
  PendingRequests* owner_ = nullptr;
  CancellationState::Ticket ticket_ = 0;
  // Guarded by the owner's mutex.
  RPCTransport::Answer answer_;
  bool isOver_ = false;
  std::uint64_t number_ = 0;
  std::size_t content_ = 0;
  List* list_ = nullptr;  // where the request stands
  List::iterator place_;
  Deadlines::iterator deadline_;
};

// The bounds of all pending requests of a process together. A request beyond them ends with
// paramErr, and is not sent.
inline constexpr std::size_t mostPendingRequests = std::size_t{1} << 15U;
inline constexpr std::size_t mostPendingContent = std::size_t{256} << 20U;  // bytes of their events

// The pending requests of a process: those to be sent, in their order, those that wait for their
// answer, and those that are over and whose completion is to be called. A thread of the transport
// sends them, minds their deadlines, and calls the completions.
//
// Call every member on any thread. None waits, and none calls a completion but complete().
class PendingRequests {
 public:
  using Clock = RequestLimits::Clock;
  using Request = std::shared_ptr<PendingRequest>;
  using Requests = std::list<Request>;

  // Calls wake, without a lock, when that thread has something to do.
  explicit PendingRequests(std::function<void()> wake) : wake_(std::move(wake)) {}

  // Adds a request to be sent. One that was refused, that has passed its limits already, or that
  // exceeds the bounds, is over at once. Throws std::bad_alloc, without effect.
  void add(const Request& request, OSErr refusal = noErr);

  // Returns the first request to be sent; null if all are sent.
  [[nodiscard]] Request firstUnsent() const;
  // Takes a request off those to be sent. False if it is over: it must not be sent.
  [[nodiscard]] bool beginSending(PendingRequest& request);
  [[nodiscard]] bool isOver(const PendingRequest& request) const;
  [[nodiscard]] bool hasUnsent() const { return unsentCount_ > 0; }
  // Count the requests in their order: the last one that was added, and the first to be sent.
  [[nodiscard]] std::uint64_t lastNumber() const;
  [[nodiscard]] std::uint64_t firstUnsentNumber() const;

  // End the requests whose deadline has passed; those that wait for their answer, all or some;
  // those to be sent.
  void expire(Clock::time_point now) noexcept;
  using Condition = std::function<bool(const PendingRequest&)>;  // called under the mutex
  void finishSent(OSErr status, const Condition& isAffected = {}) noexcept {
    finishThose(sent_, status, isAffected);
  }
  void finishUnsent(OSErr status) noexcept { finishThose(unsent_, status, {}); }

  // Returns the next deadline; time_point::max() without one.
  [[nodiscard]] Clock::time_point nextDeadline() const;
  // Tells whether requests are to be sent or wait for their answer; whether some are over.
  [[nodiscard]] bool hasOpen() const;
  [[nodiscard]] bool hasFinished() const;

  // Takes those that are over, and calls their completions. An exception from one is dropped.
  [[nodiscard]] Requests takeFinished();
  static void complete(const Requests& requests);

 private:
  friend class PendingRequest;

  void finish(PendingRequest& request, RPCTransport::Answer answer) noexcept;
  bool finishLocked(PendingRequest& request, RPCTransport::Answer answer) noexcept;
  void finishThose(Requests& requests, OSErr status, const Condition& isAffected) noexcept;
  void move(PendingRequest& request, Requests& to) noexcept;
  [[nodiscard]] OSErr refusalLocked(const PendingRequest& request) const;

  const std::function<void()> wake_;
  mutable ForkSafeMutex mutex_;
  Requests unsent_;
  Requests sent_;
  Requests finished_;
  PendingRequest::Deadlines deadlines_;
  std::atomic<std::size_t> unsentCount_{0};  // read without the mutex by each send
  std::uint64_t lastNumber_ = 0;
  std::size_t count_ = 0;
  std::size_t content_ = 0;
};

}  // namespace qbdkr
