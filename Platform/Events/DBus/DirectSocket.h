#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include "Platform/Base/Descriptor.h"

// The sockets of a direct connection. They carry the answers, wake a receiver that sleeps, and tell
// of the end of either side.
namespace qbdkr::direct {

// An answer that is larger takes several packets, one after the other.
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

// Passes a packet on as a whole or not at all, without waiting.
[[nodiscard]] Passing passPacket(int socket, std::string_view bytes);

// Wakes the receiver. False if it is there, and cannot be woken.
[[nodiscard]] bool passWake(int socket);

enum class News { none, wake, end };

// Takes what the sender has passed. A packet of any bytes wakes the receiver.
[[nodiscard]] News takeNews(int socket);

// Tells whether the other side is gone, whatever it has passed before that.
[[nodiscard]] bool isGone(int socket);

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
