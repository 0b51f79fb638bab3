#include "Platform/Events/DBus/NameOwner.h"

#include "Platform/Events/DBus/SessionBus.h"

namespace qbdkr {

NameOwner::NameOwner(const std::string& name) {
  bus_ = openSessionBus();
  if (!bus_) return;
  if (sd_bus_add_match_async(bus_.get(), nullptr, bus::ownerMatch(name).c_str(), onOwnerChanged,
                             nullptr, this) < 0 ||
      sd_bus_call_method_async(bus_.get(), nullptr, bus::service, bus::objectPath,
                               bus::interfaceName, "NameHasOwner", onAnswer, this, "s",
                               name.c_str()) < 0) {
    bus_.reset();
  }
  read();  // sends what it can: the bus works on that from now on
}

bool NameOwner::readOne() {
  const int result = bus_ ? sd_bus_process(bus_.get(), nullptr) : 0;
  if (result >= 0) return result > 0;
  bus_.reset();
  if (isThere_) isThere_ = false;
  return false;
}

pollfd NameOwner::event() const {
  if (!bus_) return {-1, 0, 0};
  return {sd_bus_get_fd(bus_.get()), static_cast<short>(sd_bus_get_events(bus_.get())), 0};
}

int NameOwner::onOwnerChanged(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
  const char* after = nullptr;
  if (sd_bus_message_read(message, "sss", nullptr, nullptr, &after) > 0) {
    static_cast<NameOwner*>(self)->isThere_ = *after != '\0';
  }
  return 0;
}

int NameOwner::onAnswer(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
  int present = 0;
  // An error, as at the end of the connection, says nothing.
  if (sd_bus_message_read(message, "b", &present) > 0) {
    static_cast<NameOwner*>(self)->isThere_ = present != 0;
  }
  return 0;
}

}  // namespace qbdkr
