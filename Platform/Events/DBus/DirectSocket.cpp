#include "Platform/Events/DBus/DirectSocket.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>

namespace qbdkr::direct {
namespace {

constexpr int kind = SOCK_SEQPACKET;
constexpr int room = 1 << 20;  // bytes that wait for a peer, as far as the system grants it

int optionOf(int socket, int option) {
  int value = -1;
  socklen_t size = sizeof value;
  return ::getsockopt(socket, SOL_SOCKET, option, &value, &size) == 0 ? value : -1;
}

}  // namespace

std::optional<SocketPair> makeSocketPair() {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, kind | SOCK_CLOEXEC, 0, ends.data()) != 0) return std::nullopt;
  for (const int end : ends) ::setsockopt(end, SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
  return SocketPair{Descriptor(ends[0]), Descriptor(ends[1])};
}

bool isEndOfPair(int descriptor) {
  return optionOf(descriptor, SO_DOMAIN) == AF_UNIX && optionOf(descriptor, SO_TYPE) == kind &&
         optionOf(descriptor, SO_ACCEPTCONN) == 0;
}

Passing passPacket(int socket, std::string_view bytes) {
  for (;;) {
    if (::send(socket, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0)
      return Passing::done;
    if (errno == EINTR) continue;
    return errno == EAGAIN || errno == ENOBUFS || errno == ENOMEM ? Passing::full : Passing::ended;
  }
}

PacketReader::Packet PacketReader::next(int socket) {
  if (!memory_) memory_.reset(new char[largestPacket]);
  for (;;) {
    const auto size = ::recv(socket, memory_.get(), largestPacket, MSG_DONTWAIT | MSG_TRUNC);
    // A peer that ended before it read all of ours is told of once, before the packets that it
    // sent.
    if (size < 0 && (errno == EINTR || errno == ECONNRESET)) continue;
    if (size < 0 && errno == EAGAIN) return {};
    // A longer packet was cut off. The contract has no such packet.
    const auto length = static_cast<std::size_t>(size);
    if (size <= 0 || length > largestPacket) return {Packet::Kind::end, {}};
    return {Packet::Kind::bytes, {memory_.get(), length}};
  }
}

}  // namespace qbdkr::direct
