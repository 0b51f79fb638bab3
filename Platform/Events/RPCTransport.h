#pragma once

#include <functional>
#include <optional>
#include <string>

#include "Platform/Base/Export.h"
#include "Platform/Base/Status.h"
#include "Platform/Events/RPCEvent.h"

namespace qbdkr {

// Carries RPC events between processes. The platform's own transport is used unless a test put
// another in its place.
class QBDKR_EXPORT RPCTransport {
 public:
  // Holds the answer of a target. The result is absent if the answer has no text.
  struct Answer {
    OSErr status = noErr;
    std::optional<std::string> result;

    bool operator==(const Answer&) const = default;
  };

  // Called on the main thread's run loop with an event from outside and the bundle identifier of
  // the application that sent it; absent for a process that is no application. Returns the result
  // that the sender gets, if it waits for one. An exception is the platform's to answer.
  using Handler = std::function<std::optional<std::string>(
      const RPCEvent& event, const std::optional<std::string>& sender)>;

  virtual ~RPCTransport() = default;

  // Sends an event, from any thread, and does not wait for the target: 0 says posted. (When the
  // system's own bus is stuck it waits for that, 5 s at most at a time.) Else the status says why
  // nothing was sent: procNotFound for a target that is not there, paramErr for an event beyond the
  // bounds, connectionInvalid without a bus. A target outside the directory that is asked for gets
  // nothing, which is errAEEventNotPermitted; on macOS, where it cannot be told, the directory is
  // not regarded.
  virtual OSErr post(const RPCTarget& target, const RPCEvent& event) = 0;

  // Sends an event and waits for its answer without limit; other threads go on sending meanwhile.
  // An answer of more than 64 MiB is errAEEventNotHandled.
  virtual Answer ask(const RPCTarget& target, const RPCEvent& event) = 0;

  // Installs the one handler, from any thread, without waiting.
  virtual void setHandler(Handler handler) = 0;
  virtual void removeHandler() = 0;

  // Says in one line why events that are posted with status 0 may not arrive. Absent if no reason
  // is known; one is found out when this process first sends. Any thread, without waiting.
  [[nodiscard]] virtual std::optional<std::string> knownObstacle() const { return std::nullopt; }

  static RPCTransport& shared();

  // Puts a transport in the place of the platform's (null: the platform's again). For tests, before
  // any other use; the caller keeps it alive.
  static void replaceShared(RPCTransport* transport);
};

}  // namespace qbdkr
