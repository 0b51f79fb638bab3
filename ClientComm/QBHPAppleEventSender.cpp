#include "ClientComm/QBHPAppleEventSender.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "ClientComm/HelperConfiguration.h"
#include "ClientComm/InfoKeys.h"
#include "ClientComm/OutOfMemory.h"
#include "Platform/Bundle.h"
#include "Platform/Text.h"

namespace qbdkr {
namespace {

AppleEventDescriptor text(Text value) {
  return AppleEventDescriptor::withString(std::string(value.value_or(std::string_view())));
}

// The empty text is no result, over whatever road it came: the bus has no other way to say so.
String resultOf(const AppleEvent& reply) {
  const AppleEventDescriptor* answer = reply.paramDescriptor(keyDirectObject);
  return answer == nullptr || answer->data().empty() ? std::nullopt : answer->stringValue();
}

// The bytes are UTF-8 but their count is that of the UTF-16 units, on purpose: peers have always
// been addressed so. Identifiers are ASCII in practice, where both are the same.
AppleEventDescriptor targetWithBundleID(Text bundleID) {
  std::string bytes(bundleID.value_or(std::string_view()));
  bytes.resize(std::min(bytes.size(), utf16Length(bytes)));
  return AppleEventDescriptor::withBytes(typeApplicationBundleID, std::move(bytes));
}

// Absent when the host does not care. Nothing lies in a directory without a name.
String requiredPlaceOfHelper() {
  if (!helperMustBeInstalledCopy()) return std::nullopt;
  return helperConfiguration().installedCopy().value_or("");
}

}  // namespace

QBHPAppleEventSender& QBHPAppleEventSender::share() {
  static auto& sender = *new QBHPAppleEventSender;
  return sender;
}

QBHPAppleEventSender::QBHPAppleEventSender()
    : helperBundleID_(Bundle::main().infoString(infokey::helperBundleIdentifier)),
      requiredPlace_(requiredPlaceOfHelper()) {}

AppleEvent QBHPAppleEventSender::createEvnet(Text bundleID, Text className, Text selectName,
                                             Arguments args) const {
  std::vector<AppleEventDescriptor> arguments;
  arguments.reserve(args.size());
  for (const std::string_view argument : args) arguments.push_back(text(argument));
  std::vector<AppleEventDescriptor> items;
  items.reserve(3);
  items.push_back(text(className));
  items.push_back(text(selectName));
  items.push_back(AppleEventDescriptor::list(std::move(arguments)));
  AppleEvent event(kCoreEventClass, kAECall, targetWithBundleID(bundleID), kAutoGenerateReturnID,
                   kAnyTransactionID);
  event.setParamDescriptor(keyDirectObject, AppleEventDescriptor::list(std::move(items)));
  if (requiredPlace_ && bundleID == view(helperBundleID_)) {
    event.setTargetDirectory(*requiredPlace_);
  }
  return event;
}

OSErr QBHPAppleEventSender::sendEvnet(Text bundleID, Text className, Text selectName,
                                      Arguments args) {
  return paramErrWithoutMemory([&] {
    AppleEvent reply;
    return AppleEventTransport::shared().sendMessage(
        createEvnet(bundleID, className, selectName, args), reply, kAENoReply, kAEDefaultTimeout);
  });
}

OSErr QBHPAppleEventSender::sendEvnet(Text bundleID, Text className, Text selectName,
                                      Arguments args, String& result) {
  result.reset();
  return paramErrWithoutMemory([&] {
    AppleEvent reply;
    const OSErr status = AppleEventTransport::shared().sendMessage(
        createEvnet(bundleID, className, selectName, args), reply, kAEWaitReply, kNoTimeOut);
    result = resultOf(reply);
    return status;
  });
}

OSErr QBHPAppleEventSender::sendEvnet(Text className, Text selectName, Arguments args) {
  return sendEvnet(view(helperBundleID_), className, selectName, args);
}

OSErr QBHPAppleEventSender::sendEvnet(Text className, Text selectName, Arguments args,
                                      String& result) {
  return sendEvnet(view(helperBundleID_), className, selectName, args, result);
}

}  // namespace qbdkr
