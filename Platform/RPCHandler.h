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

  // Reads the direct object of the event that came in; absent if it is refused. An event without
  // one gives the null descriptor.
  using DirectObject = std::function<std::optional<AppleEventDescriptor>()>;

  // What a transport knows of the sender: the two attributes of the event. Without a bundle
  // identifier it is the address that tells it.
  struct Sender {
    std::optional<AppleEventDescriptor> address;
    std::optional<AppleEventDescriptor> bundleID;
  };
  using SenderOf = std::function<Sender()>;

  // Calls the handler. errAEEventNotHandled when there is none, paramErr when the direct object was
  // refused or is beyond the bounds of an RPC event, errAEEventFailed when the handler throws or
  // its result cannot be sent. The sender is asked for last.
  [[nodiscard]] Answer handle(const DirectObject& directObject,
                              const SenderOf& sender) const noexcept;

  // The status of handle() as far as it needs no sender: noErr if the handler would be called.
  [[nodiscard]] OSErr refusal(const DirectObject& directObject) const;

 private:
  [[nodiscard]] AppleEventTransport::EventHandler handler() const;

  mutable std::mutex mutex_;
  AppleEventTransport::EventHandler handler_;
};

}  // namespace qbdkr
