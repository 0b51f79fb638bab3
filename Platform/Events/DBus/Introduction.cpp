#include "Platform/Events/DBus/Introduction.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <string_view>
#include <utility>

#include "Platform/Events/DBus/BusMessages.h"

namespace qbdkr {
namespace {

constexpr std::string_view formula = "QBHP.Identity1 ";
constexpr std::size_t longestText = 1024;  // a name of the bus has 255 bytes

// A record of this kind is nothing that a process could be made to write for another purpose.
constexpr int kind = SOCK_SEQPACKET;

// Names the bus, the receiver and the sender: it is worth nothing anywhere else. Empty on failure.
std::string textOf(sd_bus* bus, const char* receiver, const char* sender) {
  sd_id128_t id{};
  if (receiver == nullptr || sender == nullptr || sd_bus_get_bus_id(bus, &id) < 0) return {};
  std::array<char, SD_ID128_STRING_MAX> bytes{};
  return std::string(formula) + sd_id128_to_string(id, bytes.data()) + ' ' + receiver + ' ' +
         sender;
}

bool isOfKind(int socket) {
  int type = 0;
  socklen_t size = sizeof type;
  return ::getsockopt(socket, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == kind;
}

}  // namespace

Descriptor Introduction::send(sd_bus* bus, const std::string& receiver) {
  const char* name = nullptr;
  std::array<int, 2> ends{};
  if (sd_bus_get_unique_name(bus, &name) < 0 ||
      ::socketpair(AF_UNIX, kind | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    return {};
  }
  Descriptor kept(ends[0]);
  const Descriptor sent(ends[1]);
  const std::string text = textOf(bus, receiver.c_str(), name);
  if (text.empty() || ::send(kept.get(), text.data(), text.size(), MSG_NOSIGNAL) < 0) return {};
  const BusMessage message =
      newMethodCall(bus, receiver, rpc::identityInterface, rpc::introduceMember);
  if (!message || sd_bus_message_set_expect_reply(message.get(), 0) < 0 ||
      sd_bus_message_append(message.get(), rpc::introduceSignature, sent.get()) < 0 ||
      sd_bus_send(bus, message.get(), nullptr) < 0) {
    return {};
  }
  return kept;
}

std::optional<Introduction> Introduction::read(sd_bus_message* message) {
  const char* sender = sd_bus_message_get_sender(message);
  int socket = -1;
  if (sender == nullptr || sd_bus_message_read(message, rpc::introduceSignature, &socket) <= 0)
    return std::nullopt;
  Descriptor kept(::fcntl(socket, F_DUPFD_CLOEXEC, 0));
  ucred peer{};
  socklen_t size = sizeof peer;
  if (!kept || !isOfKind(kept.get()) ||
      ::getsockopt(kept.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.pid <= 0) {
    return std::nullopt;
  }
  std::array<char, longestText> bytes{};
  const auto length = ::recv(kept.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
  const std::string text =
      textOf(sd_bus_message_get_bus(message), sd_bus_message_get_destination(message), sender);
  if (length <= 0 || std::string_view(bytes.data(), static_cast<std::size_t>(length)) != text) {
    return std::nullopt;
  }
  return Introduction(std::move(kept), peer.pid);
}

bool Introduction::stands() const {
  pollfd state{socket_.get(), 0, 0};
  return ::poll(&state, 1, 0) == 0;
}

Introduction::Introduction(Descriptor socket, pid_t process)
    : socket_(std::move(socket)), process_(process) {}

}  // namespace qbdkr
