#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "Platform/Base/Descriptor.h"
#include "Platform/Events/DBus/SdBus.h"

namespace qbdkr {

// Shows a receiver which process sends to it, where the bus cannot tell: behind a proxy.
//
// The sender makes a pair of sockets, writes into the one which connection introduces itself to
// which name of which bus, and sends the other before its first event. The kernel tells the
// receiver which process made the pair, by its number in the receiver's own namespace. The text
// keeps a receiver from passing the socket on as its own introduction. The sender's socket is
// closed when its process ends or executes another program, unless that process means harm: a child
// may keep the socket.
class Introduction {
 public:
  // Introduces this process to a receiver. Returns the socket, which is to be kept while events
  // follow; none on failure. Does not wait.
  [[nodiscard]] static Descriptor send(sd_bus* bus, const std::string& receiver);

  // Reads an introduction. Absent if it is not that of the message's sender, or if the sender
  // belongs to another namespace of processes. Does not wait.
  [[nodiscard]] static std::optional<Introduction> read(sd_bus_message* message);

  [[nodiscard]] pid_t process() const { return process_; }
  // Tells whether the process still keeps its socket.
  [[nodiscard]] bool stands() const;

 private:
  Introduction(Descriptor socket, pid_t process);

  Descriptor socket_;
  pid_t process_;
};

}  // namespace qbdkr
