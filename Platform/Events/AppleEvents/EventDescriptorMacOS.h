#pragma once

#include <CoreServices/CoreServices.h>

#include <cstddef>
#include <optional>
#include <string>

#include <ClientComm/AppleEvent.h>
#include <ClientComm/Status.h>

#include "Platform/Events/RPCEvent.h"

namespace qbdkr {

// Owns a descriptor of the Apple Event Manager; the null descriptor until one is stored.
class EventDescriptor {
 public:
  EventDescriptor() { AEInitializeDesc(&desc_); }
  EventDescriptor(const EventDescriptor&) = delete;
  EventDescriptor& operator=(const EventDescriptor&) = delete;
  ~EventDescriptor() { AEDisposeDesc(&desc_); }

  [[nodiscard]] const AEDesc* get() const { return &desc_; }
  // Returns the place for a function to store a descriptor, which is then owned. Call it only once.
  [[nodiscard]] AEDesc* receive() { return &desc_; }

 private:
  AEDesc desc_{};
};

// Makes the system's descriptor from ours. Returns paramErr for text that cannot be sent, else the
// Apple Event Manager's status.
[[nodiscard]] OSErr makeDescriptor(const AppleEventDescriptor& from, EventDescriptor& made);

// Copies the bytes of a descriptor, and a process's serial number as two big-endian words. Absent
// if they cannot be read, or exceed the bounds of an event.
[[nodiscard]] std::optional<AppleEventDescriptor> plainDescriptor(const AEDesc& desc);

// The bytes of the longest text in UTF-16: those of the longest UTF-8, if it is ASCII.
inline constexpr std::size_t mostTextBytes = 2 * mostEventContent;

// Returns the text of a descriptor from outside: UTF-16 and UTF-8 as they are, and every other type
// but a list if the system can convert it to UTF-16. Absent if the text could not be sent on, or
// has more bytes than above.
[[nodiscard]] std::optional<std::string> textFrom(const AEDesc& desc);

// Reads the direct object of an RPC event: two names and a list of texts, as far as present. Null
// descriptors replace items that are not text. Absent if it exceeds the bounds of an event.
[[nodiscard]] std::optional<AppleEventDescriptor> rpcObjectFrom(const AEDesc& desc);

}  // namespace qbdkr
