#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "Platform/Events/RPCTransport.h"

namespace qbdkr {

// Holds the handler of a transport, and calls it for each received event in the same way on every
// platform.
class RPCHandler {
 public:
  // Any thread. Null removes the handler.
  void set(RPCTransport::Handler handler);
  [[nodiscard]] bool isSet() const;

  // Calls the handler. Returns errAEEventNotHandled without a handler, and errAEEventFailed if it
  // throws or its result cannot be sent.
  [[nodiscard]] RPCTransport::Answer handle(
      const RPCEvent& event, const std::optional<std::string>& sender) const noexcept;

 private:
  [[nodiscard]] RPCTransport::Handler handler() const;

  mutable std::mutex mutex_;
  RPCTransport::Handler handler_;
};

}  // namespace qbdkr
