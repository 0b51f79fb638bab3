#pragma once

#include <cstdint>

namespace qbdkr {

// The 16-bit signed result code of a request. 0 means success; the other values are those of the
// Apple Event Manager, on every platform.
using OSErr = std::int16_t;

inline constexpr OSErr noErr = 0;
inline constexpr OSErr paramErr = -50;       // text that cannot be sent, or no valid target name
inline constexpr OSErr procNotFound = -600;  // the target is not running, or has no identifier
inline constexpr OSErr connectionInvalid = -609;  // no bus, or the peer went away during the call
inline constexpr OSErr errAEEventNotHandled = -1708;    // the target takes no RPC events
inline constexpr OSErr errAETimeout = -1712;            // the time-out of the bus
inline constexpr OSErr errAEEventNotPermitted = -1743;  // the bus or the user refuses
inline constexpr OSErr errAEEventFailed = -10000;       // a handler failed; -1708 on the bus

}  // namespace qbdkr
