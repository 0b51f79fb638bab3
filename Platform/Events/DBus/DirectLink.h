#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Events/DBus/DirectMessage.h"
#include "Platform/Events/DBus/DirectRing.h"
#include "Platform/Events/DBus/DirectSocket.h"
#include "Platform/Events/DBus/SdBus.h"
#include "Platform/Events/RPCTransport.h"

namespace qbdkr {

// A direct connection to the owner of a name, from its sender's side: a ring of messages in memory,
// and a pair of sockets, of which the owner is given its parts over the bus. The events that the
// sender has for that process travel in the ring from then on, past the bus, and the answers to
// them on the sockets.
//
// The order of events holds across both changes of way:
// - from the bus: when the owner has agreed, a last message on the bus tells that the connection
//   begins. The owner does not read it before that message.
// - to the bus: the sender closes its half of the connection before it sends on the bus. The owner
//   reads the ring to its end before it takes an event of the same process from the bus, the same
//   one or the next.
// So events go over the bus while the owner has not agreed, when the ring has no room (the peer is
// stopped or busy), and if they are large. The owner reads all of it even if the sender ends.
//
// Used under the lock of its sender. No call waits.
class DirectLink {
 public:
  using Clock = std::chrono::steady_clock;

  // Called once with the answer, and the size of its text, from read() or close(); under the lock.
  using OnAnswer = void (*)(RPCTransport::Answer answer, std::size_t size, void* user);

  // Offers the owner of a name a connection, for events to an application. Null if that fails.
  static std::shared_ptr<DirectLink> offer(std::shared_ptr<sd_bus> bus, const std::string& name,
                                           const std::string& identifier);

  DirectLink(std::shared_ptr<sd_bus> bus, std::string identifier, Descriptor socket,
             direct::RingWriter ring);
  DirectLink(const DirectLink&) = delete;
  DirectLink& operator=(const DirectLink&) = delete;
  ~DirectLink() { close(); }

  [[nodiscard]] bool isOffered() const { return state_ == State::offered; }
  [[nodiscard]] bool isOpen() const { return state_ == State::open; }
  // Tells whether the peer itself has answered the offer, and not the bus.
  [[nodiscard]] bool isAnswered() const { return isAnswered_; }
  // Tells whether the peer did not agree, or cannot.
  [[nodiscard]] bool isRefused() const { return state_ == State::refused; }
  // Tells whether the connection was left, but the peer may still read what was sent on it.
  [[nodiscard]] bool isDraining() const { return state_ == State::left; }
  // Tells whether nothing will be sent or come on the connection.
  [[nodiscard]] bool isOver() const {
    return state_ == State::refused || state_ == State::closed || (isDraining() && !isAwaited());
  }
  [[nodiscard]] bool isOfBus(const sd_bus* bus) const { return bus_.get() == bus; }
  // Tells whether the connection has ended at both ends, as it does with the peer's process.
  [[nodiscard]] bool isClosed() const { return state_ == State::closed; }
  // Tells whether answers are to come, for which read() is called when the socket is readable.
  [[nodiscard]] bool isAwaited() const { return !awaited_.empty(); }
  [[nodiscard]] int descriptor() const { return socket_.get(); }

  // Returns the unique name of the peer on its bus.
  [[nodiscard]] const std::string& peer() const { return peer_; }
  // The directory in which the peer's executable was found.
  [[nodiscard]] bool isApprovedFor(const std::string& directory) const {
    return approved_ == directory;
  }
  void approveFor(const std::string& directory) { approved_ = directory; }

  // Send on an open connection. False if that cannot take the message, which was not sent. To send
  // it over the bus the caller leaves the connection; without a bus that stays open for others.
  [[nodiscard]] bool post(const RPCEvent& event);
  // Stores the number of the request if one is given.
  [[nodiscard]] bool ask(const RPCEvent& event, OnAnswer onAnswer, void* user,
                         direct::Serial* serial = nullptr);
  // Asks whether the posts were taken, also of a connection that was left: see hasPosts().
  [[nodiscard]] bool askWhetherTaken(OnAnswer onAnswer, void* user, direct::Serial& serial);
  // Waits for the end of a connection that was left, as for an answer. The peer ends it when it has
  // handled all that came on it.
  void awaitEnd(OnAnswer onAnswer, void* user, direct::Serial& serial);
  // Tells whether the peer has done so, without reading.
  [[nodiscard]] bool hasEnded() const { return direct::isGone(socket_.get()); }
  // Drops the answer to a request.
  void forget(direct::Serial serial) { awaited_.erase(serial); }

  // Tells whether there are posts of which is not known that they were taken. The one to be known
  // as taken is the last at the time of the question.
  [[nodiscard]] bool hasPosts() const { return lastPost_ != lastTaken_; }
  [[nodiscard]] direct::Serial lastPost() const { return lastPost_; }
  void notePostsTaken(direct::Serial last) { lastTaken_ = last; }

  // Takes a packet that came in.
  void read();
  // Sends nothing more on the connection. Answers still come.
  void leave();
  // Leaves an open connection, and takes an offer back.
  void drop();
  // Ends the connection, and with it the requests that wait for an answer.
  void close();

 private:
  enum class State { offered, refused, open, left, closed };
  struct Awaited {
    OnAnswer onAnswer = nullptr;
    void* user = nullptr;
  };

  [[nodiscard]] bool write(direct::Serial serial, bool expectsAnswer, const RPCEvent& event);
  [[nodiscard]] bool pass(direct::Serial awaited = 0);
  [[nodiscard]] bool isPeerThere(bool looks);
  [[nodiscard]] direct::Serial nextSerial();
  void await(direct::Serial serial, OnAnswer onAnswer, void* user);
  [[nodiscard]] bool take(std::string_view bytes);
  void takeAgreement(sd_bus_message* reply);
  static int onAgreement(sd_bus_message* reply, void* self, sd_bus_error* error);

  State state_ = State::offered;
  bool isAnswered_ = false;
  std::shared_ptr<sd_bus> bus_;  // outlives the slot
  std::string identifier_;
  BusSlot offer_;
  Descriptor socket_;
  std::optional<direct::RingWriter> ring_;  // as long as something may be sent
  Clock::time_point lastLook_;              // at the socket, for the end of the peer
  std::string peer_;
  std::optional<std::string> approved_;
  direct::Serial serial_ = 0;
  direct::Serial lastPost_ = 0;
  direct::Serial lastTaken_ = 0;
  std::map<direct::Serial, Awaited> awaited_;
  std::string message_;  // the one to be sent
  direct::PacketReader packets_;
  std::string partial_;  // an answer of several packets
  std::size_t partialSize_ = 0;
};

}  // namespace qbdkr
