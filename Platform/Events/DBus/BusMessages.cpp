#include "Platform/Events/DBus/BusMessages.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

// The bus library would count the text, and check it. That is left to it for a text that may hold a
// character that it refuses.
int appendText(sd_bus_message* message, const std::string& text) {
  if (!isPlainASCII(text)) {
    return sd_bus_message_append_basic(message, SD_BUS_TYPE_STRING, text.c_str());
  }
  char* space = nullptr;
  const int result = sd_bus_message_append_string_space(message, text.size(), &space);
  if (result >= 0) text.copy(space, text.size());
  return result;
}

int appendName(sd_bus_message* message, const std::optional<std::string>& name) {
  return name ? appendText(message, *name)
              : sd_bus_message_append_basic(message, SD_BUS_TYPE_STRING, "");
}

int appendTexts(sd_bus_message* message, const std::vector<std::string>& texts) {
  int result = sd_bus_message_open_container(message, SD_BUS_TYPE_ARRAY, "s");
  for (const std::string& text : texts) {
    if (result >= 0) result = appendText(message, text);
  }
  return result < 0 ? result : sd_bus_message_close_container(message);
}

}  // namespace

BusMessage newMethodCall(sd_bus* bus, const std::string& name, const char* interface,
                         const char* member) {
  sd_bus_message* made = nullptr;
  if (sd_bus_message_new_method_call(bus, &made, name.c_str(), rpc::objectPath, interface, member) <
      0) {
    return nullptr;
  }
  BusMessage message(made);
  return sd_bus_message_set_auto_start(made, 0) < 0 ? nullptr : std::move(message);
}

BusMessage newEventCall(sd_bus* bus, const std::string& name, const RPCEvent& event) {
  BusMessage message = newMethodCall(bus, name, rpc::interfaceName, rpc::callMember);
  const bool isComplete = message && appendName(message.get(), event.className) >= 0 &&
                          appendName(message.get(), event.methodName) >= 0 &&
                          appendTexts(message.get(), event.arguments) >= 0;
  return isComplete ? std::move(message) : nullptr;
}

}  // namespace qbdkr
