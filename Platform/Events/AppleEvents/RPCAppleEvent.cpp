#include "Platform/Events/AppleEvents/RPCAppleEvent.h"

#include <utility>
#include <vector>

#include "Platform/Events/AppleEvents/SerialNumber.h"
#include "Platform/Events/BundleIdentifier.h"

namespace qbdkr {
namespace {

AppleEventDescriptor text(const std::optional<std::string>& value) {
  return AppleEventDescriptor::withString(value.value_or(""));
}

std::optional<std::string> textOfItem(const AppleEventDescriptor* list, std::size_t index) {
  const AppleEventDescriptor* item = list == nullptr ? nullptr : list->descriptorAtIndex(index);
  return item == nullptr ? std::nullopt : item->stringValue();
}

}  // namespace

AppleEvent appleEventOf(const RPCTarget& target, const RPCEvent& event) {
  std::vector<AppleEventDescriptor> arguments;
  arguments.reserve(event.arguments.size());
  for (const std::string& argument : event.arguments) arguments.push_back(text(argument));
  AppleEvent made(kCoreEventClass, kAECall,
                  AppleEventDescriptor::withBytes(typeApplicationBundleID, target.bundleID),
                  kAutoGenerateReturnID, kAnyTransactionID);
  made.setParamDescriptor(keyDirectObject, AppleEventDescriptor::list(
                                               {text(event.className), text(event.methodName),
                                                AppleEventDescriptor::list(std::move(arguments))}));
  return made;
}

std::optional<RPCEvent> rpcEventOf(const AppleEvent& event) {
  const AppleEventDescriptor* object = event.paramDescriptor(keyDirectObject);
  const AppleEventDescriptor* list = object == nullptr ? nullptr : object->descriptorAtIndex(3);
  const std::size_t count = list == nullptr ? 0 : list->numberOfItems();
  RPCEvent read{textOfItem(object, 1), textOfItem(object, 2), {}};
  read.arguments.reserve(count);
  for (std::size_t i = 1; i <= count; ++i) {
    auto argument = textOfItem(list, i);
    if (!argument) return std::nullopt;
    read.arguments.push_back(*std::move(argument));
  }
  return read;
}

std::optional<std::string> senderOf(const AppleEvent& event) {
  const AppleEventDescriptor* address = event.attributeDescriptor(keyAddressAttr);
  const auto serial =
      address == nullptr ? std::nullopt : address->coerceToDescriptorType(typeProcessSerialNumber);
  const auto number = serial ? serialNumberFromBytes(serial->data()) : std::nullopt;
  return number ? bundleIdentifierOf(*number) : std::nullopt;
}

void setResult(AppleEvent& reply, std::string result) {
  reply.setParamDescriptor(keyDirectObject, AppleEventDescriptor::withString(std::move(result)));
}

std::optional<std::string> resultOf(const AppleEvent& reply) {
  const AppleEventDescriptor* result = reply.paramDescriptor(keyDirectObject);
  return result == nullptr ? std::nullopt : result->stringValue();
}

}  // namespace qbdkr
