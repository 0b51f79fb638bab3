#include "BareConnection.h"

#include <systemd/sd-bus.h>

#include <cstdint>

#include "Samples.h"

namespace qbdkr::bench {
namespace {

sd_bus_message* newMessage(sd_bus* bus, const Call& call) {
  sd_bus_message* message = nullptr;
  sd_bus_message_new_method_call(bus, &message, call.peer.c_str(), "/QBHP/RPCEvent",
                                 "QBHP.RPCEvent1", "Call");
  sd_bus_message_set_auto_start(message, 0);
  sd_bus_message_append(message, "ss", call.className.c_str(), call.method.c_str());
  sd_bus_message_open_container(message, 'a', "s");
  for (const std::string& text : call.arguments) {
    sd_bus_message_append_basic(message, 's', text.c_str());
  }
  sd_bus_message_close_container(message);
  return message;
}

}  // namespace

BareConnection::BareConnection() {
  if (sd_bus_open_user(&bus_) < 0) fail("no bus");
}

BareConnection::~BareConnection() { sd_bus_flush_close_unref(bus_); }

std::string BareConnection::ask(const Call& call) {
  sd_bus_message* message = newMessage(bus_, call);
  sd_bus_message* reply = nullptr;
  const char* text = nullptr;
  if (sd_bus_call(bus_, message, UINT64_MAX, nullptr, &reply) < 0 ||
      sd_bus_message_read(reply, "s", &text) <= 0) {
    fail("a bare call failed");
  }
  std::string answer = text;
  sd_bus_message_unref(reply);
  sd_bus_message_unref(message);
  return answer;
}

void BareConnection::post(const Call& call) {
  sd_bus_message* message = newMessage(bus_, call);
  sd_bus_message_set_expect_reply(message, 0);
  if (sd_bus_send(bus_, message, nullptr) < 0) fail("a bare post failed");
  sd_bus_message_unref(message);
}

}  // namespace qbdkr::bench
