#pragma once

// An RPC event as an Apple event: the form that it has on macOS, and on every platform in the calls
// of ClientComm that take or return an AppleEvent.

#include <cstdint>
#include <optional>
#include <string>

#include <ClientComm/AppleEvent.h>

#include "Platform/Events/RPCEvent.h"

namespace qbdkr {

// The options with which such an event is sent.
struct AppleEventSendOptions {
  std::int32_t mode;
  long timeout;  // ticks, or a constant
};
inline constexpr AppleEventSendOptions postOptions{kAENoReply, kAEDefaultTimeout};
inline constexpr AppleEventSendOptions askOptions{kAEWaitReply, kNoTimeOut};

// Makes the event to send: class 'aevt', ID 'call', addressed by bundle identifier, its direct
// object a list of the class name, the method name and the list of arguments.
[[nodiscard]] AppleEvent appleEventOf(const RPCTarget& target, const RPCEvent& event);

// Reads a received event. A name that is missing or not text is absent, and a missing list has no
// arguments. Absent if an argument is not text.
[[nodiscard]] std::optional<RPCEvent> rpcEventOf(const AppleEvent& event);

// Returns the bundle identifier of the application that the sending process runs now, by the
// address in the event; absent if that is not the serial number of a process, or the process runs
// no application. Reads the application's Info.plist.
[[nodiscard]] std::optional<std::string> senderOf(const AppleEvent& event);

// Set and return the result of a method in a reply: its direct object.
void setResult(AppleEvent& reply, std::string result);
[[nodiscard]] std::optional<std::string> resultOf(const AppleEvent& reply);

}  // namespace qbdkr
