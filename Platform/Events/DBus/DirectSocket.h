#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include "Platform/Base/Descriptor.h"

// The sockets of a direct connection. A packet is passed on as a whole or not at all, so no message
// is ever half sent.
namespace qbdkr::direct {

// A message of the sender is one packet; a larger one goes over the bus. A larger answer takes
// several packets, one after the other.
inline constexpr std::size_t largestPacket = std::size_t{64} << 10U;  // bytes

struct SocketPair {
  Descriptor kept;
  Descriptor given;  // to the peer
};

// Makes the two ends of a connection. Absent on failure.
[[nodiscard]] std::optional<SocketPair> makeSocketPair();

// Tells whether a descriptor from another process is the end of such a connection.
[[nodiscard]] bool isEndOfPair(int descriptor);

enum class Passing { done, full, ended };

// Passes a packet on, without waiting.
[[nodiscard]] Passing passPacket(int socket, std::string_view bytes);

// Takes packets into one piece of memory, which is made for the first.
class PacketReader {
 public:
  struct Packet {
    enum class Kind { bytes, none, end } kind = Kind::none;
    std::string_view bytes;  // valid until the next packet
  };

  // Takes the next packet, without waiting. Descriptors that come along are closed by the kernel.
  [[nodiscard]] Packet next(int socket);

 private:
  std::unique_ptr<char[]> memory_;
};

}  // namespace qbdkr::direct
