#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "Platform/Events/RPCTransport.h"

namespace qbdkr {

// The handler of a transport, which every platform calls alike with what came in.
class RPCHandler {
 public:
  // Any thread; null for none.
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
