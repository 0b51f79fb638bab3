#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include <ClientComm/QBHPAppleEventSender.h>

#include "ClientComm/HostConfiguration.h"
#include "ClientComm/OutOfMemory.h"
#include "ClientComm/RequestContent.h"
#include "ClientComm/RequestRecord.h"
#include "ClientComm/WaitingRequests.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Events/AppleEvents/RPCAppleEvent.h"
#include "Platform/Events/RPCTransport.h"

namespace qbdkr {
namespace {

RPCEvent rpcEvent(Text className, Text selectName, Arguments args) {
  RPCEvent event{std::string(className.value_or("")), std::string(selectName.value_or("")), {}};
  event.arguments.assign(args.begin(), args.end());
  return event;
}

// Returns the directory that must contain the helper agent's executable: the installed copy. Absent
// if any will do. If no copy is configured it is "", which contains no executable.
String requiredPlaceOfHelper(const HostConfiguration& host) {
  if (!host.requiresInstalledHelper()) return std::nullopt;
  return host.installedHelper().value_or("");
}

}  // namespace

QBHPAppleEventSender& QBHPAppleEventSender::share() {
  static NeverDestroyed sender([] { return QBHPAppleEventSender(); });
  return *sender;
}

QBHPAppleEventSender::QBHPAppleEventSender() : QBHPAppleEventSender(HostConfiguration()) {}

QBHPAppleEventSender::QBHPAppleEventSender(const HostConfiguration& host)
    : helperBundleID_(host.helperIdentifier()), requiredPlace_(requiredPlaceOfHelper(host)) {}

RPCTarget QBHPAppleEventSender::target(Text bundleID) const {
  auto target = RPCTarget::withBundleID(bundleID.value_or(""));
  if (bundleID == view(helperBundleID_)) target.directory = requiredPlace_;
  return target;
}

OSErr QBHPAppleEventSender::flush(std::chrono::steady_clock::time_point deadline) {
  return paramErrWithoutMemory([&] { return RPCTransport::shared().flush(deadline); });
}

AppleEvent QBHPAppleEventSender::createEvnet(Text bundleID, Text className, Text selectName,
                                             Arguments args) const {
  return appleEventOf(target(bundleID), rpcEvent(className, selectName, args));
}

OSErr QBHPAppleEventSender::sendEvnet(Text bundleID, Text className, Text selectName,
                                      Arguments args) {
  const OSErr status = paramErrWithoutMemory([&] {
    return RPCTransport::shared().post(target(bundleID), rpcEvent(className, selectName, args));
  });
  recordPost(status, bundleID, className, selectName);
  return status;
}

OSErr QBHPAppleEventSender::sendEvnet(Text bundleID, Text className, Text selectName,
                                      Arguments args, String& result) {
  result.reset();
  const WaitingRequest waiting(bundleID, className, selectName);
  const OSErr status = paramErrWithoutMemory([&] {
    auto answer =
        RPCTransport::shared().ask(target(bundleID), rpcEvent(className, selectName, args));
    result = answeredText(std::move(answer.result));
    return answer.status;
  });
  recordAnswer(status, result.has_value(), bundleID, className, selectName);
  return status;
}

OSErr QBHPAppleEventSender::sendEvnet(Text className, Text selectName, Arguments args) {
  return sendEvnet(view(helperBundleID_), className, selectName, args);
}

OSErr QBHPAppleEventSender::sendEvnet(Text className, Text selectName, Arguments args,
                                      String& result) {
  return sendEvnet(view(helperBundleID_), className, selectName, args, result);
}

Request<String> QBHPAppleEventSender::askEvnet(Text bundleID, Text className, Text selectName,
                                               Arguments args) const {
  auto content = std::make_shared<RequestContent>(
      RequestContent{target(bundleID), rpcEvent(className, selectName, args)});
  return {TextRequest(std::move(content)), [](Answer<String> answer) { return answer; }};
}

Request<String> QBHPAppleEventSender::askEvnet(Text className, Text selectName,
                                               Arguments args) const {
  return askEvnet(view(helperBundleID_), className, selectName, args);
}

}  // namespace qbdkr
