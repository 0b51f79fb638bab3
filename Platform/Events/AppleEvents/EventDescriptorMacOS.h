#pragma once

#include <CoreServices/CoreServices.h>

#include <cstddef>
#include <optional>
#include <string>

#include "Platform/Base/Status.h"
#include "Platform/Events/AppleEvents/AppleEvent.h"

namespace qbdkr {

// Owns a descriptor of the Apple Event Manager's; the null descriptor until one is stored.
class EventDescriptor {
 public:
  EventDescriptor() { AEInitializeDesc(&desc_); }
  EventDescriptor(const EventDescriptor&) = delete;
  EventDescriptor& operator=(const EventDescriptor&) = delete;
  ~EventDescriptor() { AEDisposeDesc(&desc_); }

  [[nodiscard]] const AEDesc* get() const { return &desc_; }
  // Where a function stores a descriptor that is then to be owned. Only once.
  [[nodiscard]] AEDesc* receive() { return &desc_; }

 private:
  AEDesc desc_{};
};

// The system's descriptor for one of ours. A status: paramErr for text that cannot be sent, else
// the Apple Event Manager's.
[[nodiscard]] OSErr makeDescriptor(const AppleEventDescriptor& from, EventDescriptor& made);

// The bytes of a descriptor as they are; a serial number of a process as two big-endian words.
[[nodiscard]] std::optional<AppleEventDescriptor> plainDescriptor(const AEDesc& desc);

// The text of a descriptor that came from outside: of everything but a list that the system can
// tell as text. Absent when that cannot be sent on.
[[nodiscard]] std::optional<std::string> textFrom(const AEDesc& desc);

// What an RPC event says in its direct object: two names and a list of texts, as far as they are
// there; null descriptors stand for what is no text. Absent if it is beyond the bounds of an event.
[[nodiscard]] std::optional<AppleEventDescriptor> rpcObjectFrom(const AEDesc& desc);

}  // namespace qbdkr
