#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "Platform/Events/DBus/DirectMessage.h"
#include "Platform/Events/DBus/DirectRing.h"
#include "Platform/Events/DBus/DirectSocket.h"
#include "Platform/Events/RPCTransport.h"
#include "Platform/Loop/EventSourceLinux.h"

namespace qbdkr {

// A direct connection from a sender, from the side of the process that receives: see DirectLink. It
// belongs to the main run loop, and does not wait. It lives as long as the events from it that are
// not answered, and the answers that are not sent.
class DirectPeer : public std::enable_shared_from_this<DirectPeer> {
 public:
  // Takes an event. Called from the main run loop or from readToEnd().
  using Taker = std::function<void(direct::Request&& request)>;

  DirectPeer(Descriptor socket, direct::RingReader ring, Taker taker, std::function<void()> onEnd)
      : socket_(std::move(socket)),
        ring_(std::move(ring)),
        taker_(std::move(taker)),
        onEnd_(std::move(onEnd)) {}
  DirectPeer(const DirectPeer&) = delete;
  DirectPeer& operator=(const DirectPeer&) = delete;
  ~DirectPeer();

  // Begins to read; false if the run loop cannot watch the connection.
  [[nodiscard]] bool begin();
  [[nodiscard]] bool hasBegun() const { return hasBegun_; }

  // Reads all that was sent so far.
  void readAll();
  // Reads all that was sent, and ends, if the sender has left the connection.
  void readToEnd();
  // Tells whether the sender has left the connection: there is a bound to what it has sent.
  [[nodiscard]] bool hasLeft() const { return hasLeft_; }
  // Leaves further events in the ring; takes them again.
  void setPaused(bool isPaused);

  // Answers an event, or the question. Answers that the socket does not take at once are sent
  // later; a sender that lets too many of them wait loses the connection.
  void answer(direct::Serial request, const RPCTransport::Answer& answer);

  // Ends the connection, without a call of onEnd.
  void close();

 private:
  bool takeNews();
  void readSome();
  void readSomeLater();
  std::size_t readOne();
  void breakOff();
  void end();
  void write(direct::Serial request, const RPCTransport::Answer& answer);
  void send();
  void pass();
  void watch();
  static int onReady(sd_event_source* source, int descriptor, std::uint32_t events, void* self);

  Descriptor socket_;
  direct::RingReader ring_;
  Taker taker_;
  std::function<void()> onEnd_;
  EventSource source_;
  bool hasBegun_ = false;
  bool hasLeft_ = false;   // the sender writes nothing more
  bool hasEnded_ = false;  // nothing more is to be read
  bool isPaused_ = false;
  bool isToRead_ = false;            // a task of the run loop does
  std::string message_;              // the answer to be sent
  std::deque<std::string> waiting_;  // answers that the socket did not take
  std::size_t passed_ = 0;           // bytes of the first of them
  std::size_t waitingBytes_ = 0;
  std::shared_ptr<DirectPeer> self_;  // while answers wait
};

}  // namespace qbdkr
