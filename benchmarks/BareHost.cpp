// The reference of a host: a bare program that sends one message, or has an event loop.

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <cstring>

namespace {

int sendFirstEvent() {
  sd_bus* bus = nullptr;
  if (sd_bus_open_user(&bus) < 0) return 1;
  sd_bus_message* message = nullptr;
  if (sd_bus_message_new_method_call(bus, &message, "com.Acme.EchoAgent", "/QBHP/RPCEvent",
                                     "QBHP.RPCEvent1", "Call") < 0 ||
      sd_bus_message_append(message, "ssas", "Echo", "entry:", 1, "0") < 0 ||
      sd_bus_message_set_expect_reply(message, 0) < 0 || sd_bus_send(bus, message, nullptr) < 0 ||
      sd_bus_flush(bus) < 0 || write(STDOUT_FILENO, "x", 1) != 1) {
    return 1;
  }
  _exit(0);
}

int idle() {
  sd_event* loop = nullptr;
  if (sd_event_default(&loop) < 0) return 1;
  return sd_event_loop(loop);
}

}  // namespace

int main(int argc, char** argv) {
  return argc == 2 && std::strcmp(argv[1], "first-event") == 0 ? sendFirstEvent() : idle();
}
