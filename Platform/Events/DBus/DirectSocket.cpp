#include "Platform/Events/DBus/DirectSocket.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

namespace qbdkr::direct {
namespace {

constexpr int kind = SOCK_SEQPACKET;
constexpr int room = 1 << 20;  // bytes of answers, as far as the system grants it

int optionOf(int socket, int option) {
  int value = -1;
  socklen_t size = sizeof value;
  return ::getsockopt(socket, SOL_SOCKET, option, &value, &size) == 0 ? value : -1;
}

// Takes a packet, without waiting, and returns its whole size: absent without a packet, 0 at the
// end.
std::optional<std::size_t> takePacket(int socket, char* memory, std::size_t size) {
  for (;;) {
    const auto taken = ::recv(socket, memory, size, MSG_DONTWAIT | MSG_TRUNC);
    if (taken >= 0) return static_cast<std::size_t>(taken);
    if (errno == EAGAIN) return std::nullopt;
    // A peer that ended before it read all of ours is told of once, before the packets that it
    // sent.
    if (errno != EINTR && errno != ECONNRESET) return 0;
  }
}

}  // namespace

std::optional<SocketPair> makeSocketPair() {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, kind | SOCK_CLOEXEC, 0, ends.data()) != 0) return std::nullopt;
  ::setsockopt(ends[1], SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
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

bool passWake(int socket) { return passPacket(socket, "w") != Passing::full; }

News takeNews(int socket) {
  char packet = 0;
  const auto size = takePacket(socket, &packet, sizeof packet);
  if (!size) return News::none;
  return *size > 0 ? News::wake : News::end;
}

bool isGone(int socket) {
  pollfd state{socket, 0, 0};
  return ::poll(&state, 1, 0) > 0;
}

PacketReader::Packet PacketReader::next(int socket) {
  if (!memory_) memory_.reset(new char[largestPacket]);
  const auto size = takePacket(socket, memory_.get(), largestPacket);
  if (!size) return {};
  // A longer packet was cut off. The contract has no such packet.
  if (*size == 0 || *size > largestPacket) return {Packet::Kind::end, {}};
  return {Packet::Kind::bytes, {memory_.get(), *size}};
}

}  // namespace qbdkr::direct
