#include "Platform/Events/DBus/BusWatchers.h"

namespace qbdkr {

void BusWatchers::ask(sd_bus* bus) {
  if (watch_ || bus == nullptr) return;
  const auto ignore = [](sd_bus_message*, void*, sd_bus_error*) { return 0; };
  sd_bus_slot* watch = nullptr;
  sd_bus_slot* question = nullptr;
  if (sd_bus_add_match_async(bus, &watch, bus::ownerMatch(rpc::watchName).c_str(), onChange, ignore,
                             this) < 0) {
    return;
  }
  watch_.reset(watch);
  if (sd_bus_call_method_async(bus, &question, bus::service, bus::objectPath, bus::interfaceName,
                               "NameHasOwner", onAnswer, this, "s", rpc::watchName) >= 0) {
    question_.reset(question);
  }
}

void BusWatchers::forgetBus() {
  watch_.reset();
  question_.reset();
  mayBeThere_ = true;
}

void BusWatchers::set(bool areThere) {
  mayBeThere_ = areThere;
  if (areThere) onWatcher_();
}

int BusWatchers::onAnswer(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
  int present = 0;
  if (sd_bus_message_is_method_error(message, nullptr) <= 0 &&
      sd_bus_message_read(message, "b", &present) > 0) {
    static_cast<BusWatchers*>(self)->set(present != 0);
  }
  return 1;
}

int BusWatchers::onChange(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
  const char* after = nullptr;
  if (sd_bus_message_read(message, "sss", nullptr, nullptr, &after) > 0) {
    static_cast<BusWatchers*>(self)->set(*after != '\0');
  }
  return 0;
}

}  // namespace qbdkr
