#include "Platform/Events/DBus/SessionBus.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Platform/Base/Descriptor.h"

namespace qbdkr {
namespace {

using Clock = std::chrono::steady_clock;

// The bus library sends the end of its greeting together with the beginning. xdg-dbus-proxy 0.1.4
// then takes the bus's part of the greeting for a message, and closes the
// connection. So behind a proxy the greeting is made here, one line after the other, on a socket of
// our own. The library gets the bus's words through a pair of sockets, and then the socket in place
// of that.

constexpr std::chrono::seconds greetingPatience(2);
constexpr int bufferSize = 8 << 20;  // bytes, as the bus library sets it
constexpr std::size_t longestGreeting = 1024;
constexpr int mostSteps = 16;
constexpr std::string_view opening("\0AUTH EXTERNAL\r\nDATA\r\n", 22);
constexpr std::string_view question = "NEGOTIATE_UNIX_FD\r\n";
constexpr std::string_view ending = "BEGIN\r\n";

// Returns the process at the other end: 0 for one of another namespace, absent if it is unknown.
std::optional<pid_t> processAtEnd(int connection) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (::getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return std::nullopt;
  return peer.pid;
}

bool isProxy(pid_t process) {
  if (process == 0) return true;  // this process is in a sandbox
  const std::string path = "/proc/" + std::to_string(process) + "/comm";
  // Reads without a stream: the first one of a process makes all of its locale.
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::array<char, 32> name{};
  const auto size = file ? ::read(file.get(), name.data(), name.size()) : -1;
  return size > 0 &&
         std::string_view(name.data(), static_cast<std::size_t>(size)) == "xdg-dbus-proxy\n";
}

bool hasProxyAtEnd(int connection) {
  const auto process = processAtEnd(connection);
  return process && isProxy(*process);
}

// Takes the escapes out of a value of an address; a wrong one becomes a NUL.
std::string unescaped(std::string_view value) {
  std::string text;
  for (std::size_t i = 0; i < value.size(); ++i) {
    char byte = value[i];
    if (byte == '%') {
      const auto digits = value.substr(i + 1, 2);
      unsigned char code = 0;
      std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
      byte = static_cast<char>(code);
      i += digits.size();
    }
    text += byte;
  }
  return text;
}

// Returns what lies between a key of an address and the next comma.
std::optional<std::string> valueOf(std::string_view key, std::string_view address) {
  const auto place = address.find(key);
  if (place == std::string_view::npos) return std::nullopt;
  const auto value = address.substr(place + key.size());
  return unescaped(value.substr(0, value.find(',')));
}

// Connects to the place that an address names: a file, or an abstract name.
Descriptor connectTo(std::string_view address) {
  const auto path = valueOf("path=", address);
  const auto name = path ? std::string() : valueOf("abstract=", address);
  const std::string place = path ? *path : '\0' + name.value_or("");
  sockaddr_un end{};
  if (!address.starts_with("unix:") || place.size() >= sizeof end.sun_path) return {};
  end.sun_family = AF_UNIX;
  place.copy(end.sun_path, place.size());
  const auto size = offsetof(sockaddr_un, sun_path) + place.size() + (path ? 1U : 0U);
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &bufferSize, sizeof bufferSize);
  ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &bufferSize, sizeof bufferSize);
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&end),
                static_cast<socklen_t>(size)) != 0) {
    return {};
  }
  return socket;
}

// Connects to the first of the addresses that leads to a proxy. The socket itself does not tell
// where it leads: a sandbox has the proxy's socket at another place than that where it was made.
Descriptor connectToProxy(std::string_view addresses) {
  while (!addresses.empty()) {
    const auto size = std::min(addresses.find(';'), addresses.size());
    Descriptor socket = connectTo(addresses.substr(0, size));
    if (socket && hasProxyAtEnd(socket.get())) return socket;
    addresses.remove_prefix(std::min(size + 1, addresses.size()));
  }
  errno = ECONNREFUSED;
  return {};
}

bool sendAll(int socket, std::string_view text) {
  return ::send(socket, text.data(), text.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(text.size());
}

bool awaitBytes(int socket, Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  pollfd event{socket, POLLIN, 0};
  if (left.count() > 0 && ::poll(&event, 1, static_cast<int>(left.count())) != 0) return true;
  errno = ETIMEDOUT;
  return false;
}

// Reads no further than the text that is awaited: nothing follows before our answer to it.
bool readUntil(int socket, std::string_view end, std::string& text, Clock::time_point deadline) {
  while (!text.ends_with("\r\n") || text.find(end) == std::string::npos) {
    if (!awaitBytes(socket, deadline)) return false;
    std::array<char, longestGreeting> bytes{};
    const auto size = ::recv(socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (size < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (size > 0) text.append(bytes.data(), static_cast<std::size_t>(size));
    if (size <= 0 || text.size() > longestGreeting || text.find("REJECTED") != std::string::npos) {
      errno = ECONNREFUSED;
      return false;
    }
  }
  return true;
}

// Makes the greeting up to its last line. Stores the words of the bus.
bool greet(int socket, std::string& words, Clock::time_point deadline) {
  if (!sendAll(socket, opening) || !readUntil(socket, "OK ", words, deadline)) return false;
  std::string answer;
  if (!sendAll(socket, question) || !readUntil(socket, "", answer, deadline)) return false;
  words += answer;
  return true;
}

// Has the library make its greeting with the words of the bus, from the other end of a pair. Stores
// what it says after its greeting. Returns its descriptor; -1 if it did not take the words.
int hear(sd_bus* bus, const std::string& words, std::string& message) {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) != 0)
    return -1;
  const Descriptor ours(ends[0]);
  const int theirs = ends[1];
  if (const int result = sd_bus_set_fd(bus, theirs, theirs); result < 0) {
    const Descriptor unused(theirs);
    errno = -result;
    return -1;
  }
  if (sd_bus_negotiate_fds(bus, 1) < 0 || sd_bus_set_bus_client(bus, 1) < 0 ||
      sd_bus_set_trusted(bus, 1) < 0 || !sendAll(ours.get(), words) || sd_bus_start(bus) < 0) {
    return -1;
  }
  int unread = 1;
  for (int step = 0; unread > 0 && step < mostSteps; ++step) {
    if (sd_bus_process(bus, nullptr) < 0 || ::ioctl(theirs, FIONREAD, &unread) != 0) return -1;
  }
  std::array<char, longestGreeting> said{};
  const auto size = ::recv(ours.get(), said.data(), said.size(), MSG_DONTWAIT);
  const std::string_view all(said.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
  const auto end = all.find(ending);
  errno = EPROTO;
  if (unread > 0 || end == std::string_view::npos) return -1;
  message = all.substr(end + ending.size());
  return theirs;
}

// Returns the address of a socket at a path, as the bus library reads it.
std::string addressOf(const std::string& path) {
  constexpr std::string_view plain =
      "-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz/.";
  constexpr std::string_view digits = "0123456789abcdef";
  std::string address = "unix:path=";
  for (const char character : path) {
    const auto byte = static_cast<unsigned char>(character);
    if (plain.find(character) != std::string_view::npos) {
      address += character;
    } else {
      address += {'%', digits[byte / 16U], digits[byte % 16U]};
    }
  }
  return address;
}

// Waits until the bus has given the connection its name. A proxy with a rule for all names of a
// kind asks the bus itself then, by numbers that a message sent earlier would have too: the answer
// to that message would be lost.
bool awaitName(sd_bus* bus, Clock::time_point deadline) {
  while (sd_bus_is_ready(bus) == 0) {
    const int result = sd_bus_process(bus, nullptr);
    if (result < 0) return false;
    if (result == 0 && !awaitBytes(sd_bus_get_fd(bus), deadline)) return false;
  }
  return true;
}

UniqueBus openBehindProxy(std::string_view addresses) {
  std::string words;
  const Descriptor socket = connectToProxy(addresses);
  const auto deadline = Clock::now() + greetingPatience;
  sd_bus* made = nullptr;
  if (!socket || !greet(socket.get(), words, deadline) || sd_bus_new(&made) < 0) return {};
  UniqueBus bus(made);
  std::string message;
  const int place = hear(made, words, message);
  if (place < 0 || !sendAll(socket.get(), std::string(ending) + message) ||
      ::dup3(socket.get(), place, O_CLOEXEC) < 0 || !awaitName(made, deadline)) {
    return {};
  }
  return bus;
}

}  // namespace

UniqueBus openSessionBus() {
  sd_bus* opened = nullptr;
  if (const int result = sd_bus_open_user(&opened); result < 0) {
    errno = -result;
    return {};
  }
  UniqueBus bus(opened);
  const char* addresses = nullptr;
  if (leadsToProxy(opened) && sd_bus_get_address(opened, &addresses) >= 0) {
    const std::string kept = addresses;
    bus.reset();
    bus = openBehindProxy(kept);
  }
  return bus;
}

UniqueBus openUserBus() {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  sd_bus* made = nullptr;
  int result = runtime != nullptr ? sd_bus_new(&made) : -ENOENT;
  UniqueBus bus(made);
  if (result >= 0)
    result = sd_bus_set_address(made, addressOf(runtime + std::string("/bus")).c_str());
  if (result >= 0) result = sd_bus_set_bus_client(made, 1);
  if (result >= 0) result = sd_bus_start(made);
  if (result >= 0) return bus;
  errno = -result;
  return {};
}

bool leadsToProxy(sd_bus* bus) { return hasProxyAtEnd(sd_bus_get_fd(bus)); }

bool leadsOutOfNamespace(sd_bus* bus) { return processAtEnd(sd_bus_get_fd(bus)) == 0; }

}  // namespace qbdkr
