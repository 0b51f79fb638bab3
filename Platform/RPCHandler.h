#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "Platform/AppleEvent.h"

namespace qbdkr {

// The handler of RPC events, which every transport calls alike with what came in.
class RPCHandler {
 public:
  // What the sender gets. No result is an empty text.
  struct Answer {
    OSErr status = noErr;
    std::string result;
  };

  // Any thread; null for none.
  void set(AppleEventTransport::EventHandler handler);
  [[nodiscard]] bool isSet() const;

  // Reads a part of the event that came in; absent when it is refused. An event without a direct
  // object gives the null descriptor.
  using Part = std::function<std::optional<AppleEventDescriptor>()>;

  // Calls the handler. errAEEventNotHandled when there is none, paramErr when the direct object was
  // refused or is beyond the bounds of an RPC event, errAEEventFailed when the handler throws or
  // its result cannot be sent. The address is asked for last, and left out when the sender is not
  // known.
  [[nodiscard]] Answer handle(const Part& directObject, const Part& address) const noexcept;

 private:
  [[nodiscard]] AppleEventTransport::EventHandler handler() const;

  mutable std::mutex mutex_;
  AppleEventTransport::EventHandler handler_;
};

}  // namespace qbdkr
