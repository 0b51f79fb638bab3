#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include <ClientComm/Export.h>
#include <ClientComm/RequestLimits.h>
#include <ClientComm/Status.h>

#include "Platform/Events/RPCEvent.h"

namespace qbdkr {

// Carries RPC events between processes. The platform's own transport is used unless a test replaced
// it.
class QBDKR_EXPORT RPCTransport {
 public:
  // Holds the answer of a target. The result is absent if the answer has no text.
  struct Answer {
    OSErr status = noErr;
    std::optional<std::string> result;

    bool operator==(const Answer&) const = default;
  };

  // Called on the main thread's run loop with an event from outside and the bundle identifier of
  // the application that sent it; absent if the sender is not an application. Returns the result
  // for a sender that waits for one. After an exception, that sender gets an error.
  using Handler = std::function<std::optional<std::string>(
      const RPCEvent& event, const std::optional<std::string>& sender)>;

  // Called with the answer to a request that was started.
  using Completion = std::function<void(Answer)>;

  virtual ~RPCTransport() = default;

  // Sends an event without waiting for the target. Any thread. If the system's own bus is stuck it
  // blocks for that, 5 s at most at a time. Returns 0 if the event was posted. Otherwise nothing
  // was sent: procNotFound if the target is not running, paramErr for an event beyond the bounds,
  // connectionInvalid without a bus, errAETimeout if the bus did not take the event in time or too
  // much waits for a target that has stopped, errAEEventNotPermitted if the target's executable
  // lies outside the directory that was asked for. macOS cannot check the directory, and ignores
  // it.
  virtual OSErr post(const RPCTarget& target, const RPCEvent& event) = 0;

  // Sends an event and blocks until its answer comes, without a limit. Any thread; others can send
  // during the wait. An answer of more than 64 MiB is errAEEventNotHandled.
  virtual Answer ask(const RPCTarget& target, const RPCEvent& event) = 0;

  // Starts a request, and returns at once: a bus that is missing or stuck does not hold it up. Any
  // thread. The completion is called once, on a thread of the transport, which all requests share:
  // it must hand the answer on. It is never called from inside this call, and never in a forked
  // child of the process that started the request.
  //
  // One thread's posts and requests are sent in the order in which it made them.
  //
  // The answer is that of ask(), and besides: errAETimeout if the deadline has passed;
  // userCanceledErr if the request was cancelled; paramErr beyond the bounds of PendingRequests.h.
  // One that passed its limits before it was sent is not sent. Returns false, and calls nothing, if
  // the transport cannot have its thread. Throws std::bad_alloc, and calls nothing.
  virtual bool start(const RPCTarget& target, RPCEvent event, const RequestLimits& limits,
                     Completion completion) = 0;

  // Sends an event and blocks until its answer comes or the request passes its limits, with the
  // answers of start(). Any thread. Throws std::bad_alloc.
  virtual Answer askWithin(const RequestLimits& limits, const RPCTarget& target,
                           const RPCEvent& event);

  // Waits until the targets have taken what this process posted before the call: each has read it,
  // knows its sender, and has handed it to its handler. Any thread; others can send during the
  // wait. A target that is gone is not waited for. A request that was started is not waited for:
  // its completion tells what became of it. Of targets, 4,096 are remembered. Returns 0 if nothing
  // is left to wait for, else errAETimeout at the deadline, connectionInvalid if a connection to
  // the bus ended, with which posts may be lost (said once), or the bus's refusal of the question.
  // A transport whose targets have an event when post() returns has nothing to wait for.
  virtual OSErr flush(std::chrono::steady_clock::time_point /*deadline*/) { return noErr; }

  // Install the one handler, and remove it. Any thread; do not wait.
  virtual void setHandler(Handler handler) = 0;
  virtual void removeHandler() = 0;

  // Waits until events that are sent to this process by its name are kept for its main run loop,
  // also if that does not run yet. Returns at the deadline, and at once without a handler or a
  // connection, and where a name needs no claim. Any thread.
  virtual void awaitName(std::chrono::steady_clock::time_point /*deadline*/) {}

  // Returns one line that says why events posted with status 0 may not arrive. Absent if no reason
  // is known; the first send of this process finds it. Any thread; does not wait.
  [[nodiscard]] virtual std::optional<std::string> knownObstacle() const { return std::nullopt; }

  // Tells how this process stands, to let it end by itself.
  struct Standing {
    using Time = std::chrono::steady_clock::time_point;
    // Since then no event has come, and no process was there that had sent one. Absent while such a
    // process is there.
    std::optional<Time> idleSince;
    // Since then there has been no connection; absent with one.
    std::optional<Time> lostSince;
  };

  // Begins to keep what standing() tells. The function is called on the main run loop when the
  // connection is lost. Main run loop only; does not wait.
  virtual void watchStanding(const std::function<void()>& /*onLost*/) {}

  // Returns how this process stands; looks for a lost bus once more. Nothing is told that is not
  // watched, or that the system cannot tell. Main run loop only; does not wait.
  [[nodiscard]] virtual Standing standing() { return {}; }

  // Calls a function on the main run loop when every event that had come for this process by the
  // time of the call was handled. Main run loop only; does not wait.
  virtual void whenHandled(std::function<void()> done);

  // Sets the function that makes the diagnosis of this process for another one of the user. It is
  // called on a thread of its own, once at a time, and may block. A transport that cannot be asked
  // does not keep it. Any thread.
  virtual void setDiagnoser(const std::function<std::string()>& /*diagnoser*/) {}

  // Returns the transport in use. Any thread.
  static RPCTransport& shared();

  // Replaces the platform's transport; null restores it. For tests, before any other use; the
  // caller keeps the new one alive.
  static void replaceShared(RPCTransport* transport);
};

}  // namespace qbdkr
