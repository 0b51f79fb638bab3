#include "Platform/Events/DBus/OwnerInquiry.h"

#include <cstdint>
#include <utility>

#include "Platform/Base/DropExceptions.h"
#include "Platform/Events/DBus/BusAnswer.h"
#include "Platform/Processes/ExecutablePlaceLinux.h"

namespace qbdkr {

OwnerInquiry::OwnerInquiry(std::shared_ptr<sd_bus> bus, std::string name, std::string directory)
    : bus_(std::move(bus)),
      name_(std::move(name)),
      directory_(std::move(directory)),
      deadline_(Clock::now() + busPatience) {
  ask("GetNameOwner", name_, onAddress);
}

void OwnerInquiry::ask(const char* method, const std::string& name,
                       sd_bus_message_handler_t onAnswer) {
  sd_bus_slot* slot = nullptr;
  if (sd_bus_call_method_async(bus_.get(), &slot, bus::service, bus::objectPath, bus::interfaceName,
                               method, onAnswer, this, "s", name.c_str()) < 0) {
    outcome_ = connectionInvalid;
  }
  slot_.reset(slot);
}

int OwnerInquiry::onAddress(sd_bus_message* message, void* self, sd_bus_error*) {
  auto& inquiry = *static_cast<OwnerInquiry*>(self);
  const char* address = nullptr;
  if (const sd_bus_error* error = sd_bus_message_get_error(message)) {
    inquiry.outcome_ = statusOfError(error);
  } else if (sd_bus_message_read(message, "s", &address) <= 0) {
    inquiry.outcome_ = procNotFound;
  } else {
    inquiry.outcome_ = paramErr;  // if memory runs out
    dropExceptions([&] {
      inquiry.address_ = address;
      inquiry.outcome_.reset();
      inquiry.ask("GetConnectionUnixProcessID", inquiry.address_, onProcess);
    });
  }
  return 1;
}

int OwnerInquiry::onProcess(sd_bus_message* message, void* self, sd_bus_error*) {
  auto& inquiry = *static_cast<OwnerInquiry*>(self);
  std::uint32_t process = 0;
  if (const sd_bus_error* error = sd_bus_message_get_error(message)) {
    inquiry.outcome_ = statusOfError(error);
    return 1;
  }
  inquiry.outcome_ = errAEEventNotPermitted;
  dropExceptions([&] {
    if (sd_bus_message_read(message, "u", &process) > 0 &&
        runsFrom(static_cast<pid_t>(process), inquiry.directory_)) {
      inquiry.outcome_ = noErr;
    }
  });
  return 1;
}

}  // namespace qbdkr
