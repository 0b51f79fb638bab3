#pragma once

#include <span>
#include <string_view>

#include <ClientComm/AppleEvent.h>
#include <ClientComm/Export.h>
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
// All send operations run on the calling thread, any thread, and return the transport's status
// unchanged: 0 when the event was posted or answered; procNotFound when the target is not running
// or the identifier is missing; connectionInvalid without a bus, or when the peer went away;
// errAEEventNotHandled, errAEEventNotPermitted, errAETimeout as the transport says; paramErr, and
// nothing is sent, for a text that is not UTF-8 or holds a NUL, and for an identifier that names no
// possible target; paramErr also if there is no memory for the event or for its answer. They log
// nothing, retry nothing and throw nothing.
class QBDKR_EXPORT QBHPAppleEventSender {
 public:
  // The sender of this process; made on first use, never destroyed.
  static QBHPAppleEventSender& share();

  // Reads the helper agent's identifier from the main bundle's "Helper Bundle indentifiter", once,
  // and whether its requests are for the installed copy alone ("Helper must be installed copy").
  // Then a process that owns the helper agent's name but runs from elsewhere gets no event, and the
  // status is errAEEventNotPermitted.
  QBHPAppleEventSender();

  // Posts an event to an application without waiting for it. Only a bus that is itself stuck makes
  // it wait, some seconds at most.
  OSErr sendEvnet(Text bundleID, Text className, Text selectName, Arguments args);

  // Sends an event to an application and waits for its reply, without limit. The result is always
  // written: the reply's text, or absent. An empty text is absent as well.
  OSErr sendEvnet(Text bundleID, Text className, Text selectName, Arguments args, String& result);

  // The same two, to the helper agent.
  OSErr sendEvnet(Text className, Text selectName, Arguments args);
  OSErr sendEvnet(Text className, Text selectName, Arguments args, String& result);

  // Builds the Apple event that such a request is on macOS, and sends nothing.
  [[nodiscard]] AppleEvent createEvnet(Text bundleID, Text className, Text selectName,
                                       Arguments args) const;

  // The bundle identifier of the helper agent; absent when the host names none.
  [[nodiscard]] const String& helperBundleID() const { return helperBundleID_; }

 protected:
  // Of another host, for a test.
  explicit QBHPAppleEventSender(const HostConfiguration& host);

 private:
  [[nodiscard]] RPCTarget target(Text bundleID) const;

  String helperBundleID_;
  String requiredPlace_;  // of the helper agent's executable; absent: anywhere
};

}  // namespace qbdkr
