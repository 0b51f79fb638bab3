#include "Platform/Events/DBus/BusAnswer.h"

#include <cstring>
#include <optional>
#include <string>

#include "Platform/Events/DBus/SdBus.h"
#include "Platform/Events/RPCEvent.h"

namespace qbdkr {

OSErr statusOfError(const sd_bus_error* error) {
  const auto is = [error](const char* name) { return sd_bus_error_has_name(error, name) > 0; };
  if (is(SD_BUS_ERROR_SERVICE_UNKNOWN) || is(SD_BUS_ERROR_NAME_HAS_NO_OWNER)) return procNotFound;
  if (is(SD_BUS_ERROR_NO_REPLY) || is(SD_BUS_ERROR_DISCONNECTED)) return connectionInvalid;
  if (is(SD_BUS_ERROR_TIMEOUT) || is("org.freedesktop.DBus.Error.TimedOut")) return errAETimeout;
  if (is(SD_BUS_ERROR_ACCESS_DENIED)) return errAEEventNotPermitted;
  return errAEEventNotHandled;
}

RPCTransport::Answer readAnswer(sd_bus_message* reply, std::size_t& size) {
  if (const sd_bus_error* error = sd_bus_message_get_error(reply)) {
    size = error->message == nullptr ? 0 : std::strlen(error->message);
    return {statusOfError(error), std::nullopt};
  }
  const char* text = nullptr;
  if (sd_bus_message_read(reply, rpc::resultSignature, &text) <= 0) return {};
  size = std::strlen(text);
  if (size > mostEventContent) return {errAEEventNotHandled, std::nullopt};
  return {noErr, std::string(text, size)};
}

}  // namespace qbdkr
