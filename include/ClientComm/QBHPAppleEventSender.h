#pragma once

#include <chrono>
#include <span>
#include <string_view>

#include <ClientComm/AppleEvent.h>
#include <ClientComm/Export.h>
#include <ClientComm/Request.h>
#include <ClientComm/Status.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

class HostConfiguration;
struct RPCTarget;

// The arguments of an RPC event, in order.
using Arguments = std::span<const std::string_view>;

// Builds and sends RPC events: a class name, a full method name and text arguments, to an
// application named by its bundle identifier.
//
// Every send runs on the calling thread; any thread. It throws nothing, retries nothing, and
// returns the transport's status:
//   0                       posted, or answered
//   procNotFound            the target is not running, or the identifier is missing
//   connectionInvalid       no bus, or the peer went away during the call
//   errAEEventNotHandled    the target takes no RPC events, or answered with an error or too much
//   errAEEventNotPermitted  the bus or the user refuses, or the target is not the installed copy
//   errAETimeout            a time-out of the bus
//   paramErr                nothing was sent: a text that is not UTF-8 or holds a NUL, an event
//                           beyond the bounds, an invalid target identifier; or no memory for the
//                           event or its answer
class QBDKR_EXPORT QBHPAppleEventSender {
 public:
  // Returns the sender of this process, made on first use, never destroyed. Any thread.
  static QBHPAppleEventSender& share();

  // Reads two keys of the main bundle, once: the helper agent's identifier, "Helper Bundle
  // indentifiter", and "Helper must be installed copy". With that one, a process that owns the
  // helper agent's name but runs from elsewhere gets no event (Linux).
  QBHPAppleEventSender();

  // Posts an event to an application, and does not wait for it. A stuck bus blocks the call, 5 s at
  // most at a time.
  OSErr sendEvnet(Text bundleID, Text className, Text selectName, Arguments args);

  // Sends an event to an application and waits for its reply, without limit. Always sets the
  // result: the reply's text; absent if that is empty or missing.
  OSErr sendEvnet(Text bundleID, Text className, Text selectName, Arguments args, String& result);

  // Do the same for the helper agent.
  OSErr sendEvnet(Text className, Text selectName, Arguments args);
  OSErr sendEvnet(Text className, Text selectName, Arguments args, String& result);

  // Make a request for a text to an application, and to the helper agent, and send nothing:
  // Request::wait() and start() send it, within limits. Throw std::bad_alloc.
  [[nodiscard]] Request<String> askEvnet(Text bundleID, Text className, Text selectName,
                                         Arguments args) const;
  [[nodiscard]] Request<String> askEvnet(Text className, Text selectName, Arguments args) const;

  // Waits until the targets have taken everything that this process, on any thread, posted before
  // the call. Call it before the process ends: a target learns who posted an event only while that
  // process is there, and drops the event of an unknown one. Any thread; blocks until the deadline
  // at most. Other threads can send meanwhile.
  //
  // A flush covers the posts since the last one that returned 0, to 4,096 targets. It asks all of
  // them at once. Returns
  //   0                  every target has read the events, knows who sent them, and has begun to
  //                      handle the last one; or it is gone, and with it what it had not handled;
  //                      or it does not know the question and has read what came before; or nothing
  //                      was posted. Not that a method has returned, or that it had success
  //   errAETimeout       the deadline passed first. It was posted all the same, and may be taken
  //                      later. The next flush asks again
  //   connectionInvalid  the connection to the bus ended, and with it posts may be lost; said once
  //   any other          the bus refuses the question, for one target at least
  // A request that was started with Request::start() is not a post, and is not waited for: its
  // completion tells what became of it.
  //
  // A process takes events on its main thread: two that wait for each other there both wait until
  // their deadlines, and one that posted to itself does so too.
  OSErr flush(std::chrono::steady_clock::time_point deadline);

  // Builds the Apple event of such a request on macOS, and sends nothing.
  [[nodiscard]] AppleEvent createEvnet(Text bundleID, Text className, Text selectName,
                                       Arguments args) const;

  // Returns the bundle identifier of the helper agent; absent if the host names none.
  [[nodiscard]] const String& helperBundleID() const { return helperBundleID_; }

 protected:
  // Sends for another host, in a test.
  explicit QBHPAppleEventSender(const HostConfiguration& host);

 private:
  [[nodiscard]] RPCTarget target(Text bundleID) const;

  String helperBundleID_;
  String requiredPlace_;  // directory of the helper agent's executable; absent: any
};

}  // namespace qbdkr
