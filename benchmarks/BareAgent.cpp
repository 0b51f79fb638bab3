// The reference of an inbound event: the same method, as a bare sd-bus vtable.

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include "Samples.h"
#include "TimeOnTheWay.h"

namespace {

int onCall(sd_bus_message* message, void* /*self*/, sd_bus_error* /*error*/) {
  const char* text = nullptr;
  if (sd_bus_message_read(message, "ss", &text, &text) < 0 ||
      sd_bus_message_enter_container(message, 'a', "s") < 0 ||
      sd_bus_message_read(message, "s", &text) < 0) {
    return -1;
  }
  return sd_bus_reply_method_return(message, "s", qbdkr::bench::timeOnTheWay(text).c_str());
}

const sd_bus_vtable methods[] = {SD_BUS_VTABLE_START(0),
                                 SD_BUS_METHOD("Call", "ssas", "s", onCall, 0), SD_BUS_VTABLE_END};

}  // namespace

int main() {
  sd_bus* bus = nullptr;
  sd_event* loop = nullptr;
  if (sd_bus_open_user(&bus) < 0 ||
      sd_bus_add_object_vtable(bus, nullptr, "/QBHP/RPCEvent", "QBHP.RPCEvent1", methods, nullptr) <
          0 ||
      sd_bus_request_name(bus, "com.Acme.BareAgent", 0) < 0 || sd_event_new(&loop) < 0 ||
      sd_bus_attach_event(bus, loop, 0) < 0) {
    qbdkr::bench::fail("the bare agent has no bus");
  }
  return sd_event_loop(loop);
}
