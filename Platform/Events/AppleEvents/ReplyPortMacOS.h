#pragma once

#include <CoreServices/CoreServices.h>

#include <ClientComm/Status.h>

namespace qbdkr {

// The port to which the reply comes that a thread waits for. The main thread needs none. The reply
// to another one may come to the port of the process without it, from which only the main thread
// reads.
//
// A thread hands its port on when it ends. Ports are seldom released, as in Apple's sample for
// this: releasing one could hit another port of the process then. So there are as many as threads
// that have waited at the same time.
class ReplyPort {
 public:
  ReplyPort() = default;
  ReplyPort(const ReplyPort&) = delete;
  ReplyPort& operator=(const ReplyPort&) = delete;
  ~ReplyPort();

  // Returns that of the calling thread.
  static ReplyPort& ofThisThread();

  // Names the port in a message. Returns paramErr if there is no room for one, else the Apple Event
  // Manager's status.
  [[nodiscard]] OSErr nameIn(AEDesc& message);

  // Gives the port up for a new one, and releases it: a reply that is late may still come to it,
  // and the next wait would take that for its own.
  void giveUp();

 private:
  bool get();

  mach_port_t port_ = MACH_PORT_NULL;
};

}  // namespace qbdkr
