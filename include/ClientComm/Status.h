#pragma once

#include <cstdint>

namespace qbdkr {

// The 16-bit signed result code of a request. 0 means success; the others are codes of the Apple
// Event Manager, on every platform. QBHPAppleEventSender.h says when a send returns each.
using OSErr = std::int16_t;

// The statuses that a request can have.
inline constexpr OSErr noErr = 0;
inline constexpr OSErr paramErr = -50;                // the event or its target is invalid
inline constexpr OSErr userCanceledErr = -128;        // the caller cancelled the request
inline constexpr OSErr procNotFound = -600;           // the target is not running
inline constexpr OSErr connectionInvalid = -609;      // no bus, or the peer went away
inline constexpr OSErr errAEEventNotHandled = -1708;  // the target refused or failed
inline constexpr OSErr errAETimeout = -1712;  // a deadline or a time-out of the bus has passed
inline constexpr OSErr errAEEventNotPermitted = -1743;  // the bus, the user or a check refuses
inline constexpr OSErr errAEEventFailed = -10000;       // a handler failed; -1708 for its sender

}  // namespace qbdkr
