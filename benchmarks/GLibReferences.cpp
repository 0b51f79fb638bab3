#include "GLibReferences.h"

#include <gio/gio.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <vector>

#include "Samples.h"

namespace qbdkr::bench {
namespace {

GVariant* parametersOf(const Call& call) {
  GVariantBuilder texts;
  g_variant_builder_init(&texts, G_VARIANT_TYPE("as"));
  for (const std::string& text : call.arguments) {
    g_variant_builder_add(&texts, "s", text.c_str());
  }
  return g_variant_new("(ssas)", call.className.c_str(), call.method.c_str(), &texts);
}

std::size_t sizeOf(GDBusMessage* message) {
  gsize size = 0;
  g_dbus_message_set_serial(message, 1000);
  guchar* bytes = g_dbus_message_to_blob(message, &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr);
  if (bytes == nullptr) fail("a message has no bytes");
  g_free(bytes);
  g_object_unref(message);
  return size;
}

// The bus adds the sender to what a peer reads.
constexpr const char* uniqueName = ":1.10";

std::size_t sizeOfCall(const Call& call) {
  GDBusMessage* message =
      g_dbus_message_new_method_call(call.peer.c_str(), "/QBHP/RPCEvent", "QBHP.RPCEvent1", "Call");
  g_dbus_message_set_sender(message, uniqueName);
  g_dbus_message_set_body(message, parametersOf(call));
  return sizeOf(message);
}

std::size_t sizeOfAnswer(const std::string& answer) {
  GDBusMessage* message = g_dbus_message_new();
  g_dbus_message_set_message_type(message, G_DBUS_MESSAGE_TYPE_METHOD_RETURN);
  g_dbus_message_set_reply_serial(message, 1000);
  g_dbus_message_set_sender(message, uniqueName);
  g_dbus_message_set_destination(message, uniqueName);
  g_dbus_message_set_body(message, g_variant_new("(s)", answer.c_str()));
  return sizeOf(message);
}

[[noreturn]] void returnPackets(int socket, std::size_t calls, std::size_t answers) {
  std::vector<char> bytes(calls + answers);
  while (recv(socket, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(calls)) {
    if (send(socket, bytes.data(), answers, 0) < 0) break;
  }
  _exit(0);
}

}  // namespace

std::function<void()> gdbusCall(const Call& call) {
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
  if (bus == nullptr) fail("GDBus has no bus");
  return [bus, call] {
    GVariant* answer = g_dbus_connection_call_sync(
        bus, call.peer.c_str(), "/QBHP/RPCEvent", "QBHP.RPCEvent1", "Call", parametersOf(call),
        G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NO_AUTO_START, G_MAXINT, nullptr, nullptr);
    if (answer == nullptr) fail("a call by GDBus failed");
    g_variant_unref(answer);
  };
}

std::function<void()> packetExchange(const Call& call, const std::string& answer) {
  const std::size_t calls = sizeOfCall(call);
  const std::size_t answers = sizeOfAnswer(answer);
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) fail("no sockets");
  if (fork() == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    close(ends[0]);
    returnPackets(ends[1], calls, answers);
  }
  close(ends[1]);
  return [socket = ends[0], calls, answers, bytes = std::vector<char>(calls + answers)]() mutable {
    if (send(socket, bytes.data(), calls, 0) != static_cast<ssize_t>(calls) ||
        recv(socket, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(answers)) {
      fail("a packet was not returned");
    }
  };
}

}  // namespace qbdkr::bench
