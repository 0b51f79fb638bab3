#include "Platform/Linux/BusReceiver.h"

#include <time.h>

#include <algorithm>
#include <array>

#include "Platform/Bundle.h"
#include "Platform/DropExceptions.h"
#include "Platform/Linux/BusName.h"
#include "Platform/Linux/MainEventLoop.h"
#include "Platform/Linux/ProcessInformation.h"
#include "Platform/Log.h"
#include "Platform/RPCEvent.h"
#include "Platform/RunLoop.h"

namespace qbdkr {
namespace {

constexpr std::uint64_t firstRetry = 100'000;  // microseconds
constexpr std::uint64_t longestRetry = 5'000'000;
constexpr std::uint64_t busPatience = 5'000'000;
constexpr std::size_t mostSenders = 256;

AppleEventDescriptor processAddress(pid_t processID) {
  const auto value = static_cast<std::int32_t>(processID);
  std::string bytes(sizeof value, '\0');
  std::copy_n(reinterpret_cast<const char*>(&value), sizeof value, bytes.begin());
  return AppleEventDescriptor::withBytes(typeKernelProcessID, std::move(bytes));
}

// The direct object of the event that a call stands for; absent when the message is not of the
// form, or has more texts than any event may have.
std::optional<AppleEventDescriptor> readDirectObject(sd_bus_message* message) {
  const char* className = nullptr;
  const char* methodName = nullptr;
  if (sd_bus_message_read(message, "ss", &className, &methodName) <= 0 ||
      sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "s") <= 0) {
    return std::nullopt;
  }
  auto arguments = AppleEventDescriptor::list();
  const char* argument = nullptr;
  EventAllowance allowance;
  int result = 0;
  while ((result = sd_bus_message_read_basic(message, SD_BUS_TYPE_STRING, &argument)) > 0) {
    if (!allowance.take(argument)) return std::nullopt;
    arguments.insertDescriptor(AppleEventDescriptor::withString(argument), 0);
  }
  if (result < 0) return std::nullopt;
  auto directObject = AppleEventDescriptor::list();
  directObject.insertDescriptor(AppleEventDescriptor::withString(className), 1);
  directObject.insertDescriptor(AppleEventDescriptor::withString(methodName), 2);
  directObject.insertDescriptor(std::move(arguments), 3);
  return directObject;
}

int refuse(sd_bus_message* message, const char* error, const char* text) {
  return sd_bus_reply_method_errorf(message, error, "%s", text);
}

}  // namespace

const sd_bus_vtable BusReceiver::methods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_NAMES(rpc::callMember, rpc::callSignature,
                             SD_BUS_PARAM(class_name) SD_BUS_PARAM(method_name)
                                 SD_BUS_PARAM(arguments),
                             rpc::resultSignature, SD_BUS_PARAM(result), BusReceiver::onCall,
                             SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

BusReceiver& BusReceiver::shared() {
  static auto& receiver = *new BusReceiver;
  return receiver;
}

void BusReceiver::setHandler(AppleEventTransport::EventHandler handler) {
  handler_.set(std::move(handler));
  RunLoop::main().perform([this] { connect(); });
}

void BusReceiver::removeHandler() {
  handler_.set(nullptr);
  RunLoop::main().perform([this] { disconnect(); });
}

void BusReceiver::busAppeared() {
  RunLoop::main().perform([this] {
    if (retry_ != nullptr) connect();
  });
}

void BusReceiver::connect() {
  retry_ = sd_event_source_disable_unref(retry_);
  if (bus_ || !handler_.isSet()) return;
  sd_bus* opened = nullptr;
  if (sd_bus_open_user(&opened) < 0) return tryAgainLater();
  bus_.reset(opened);
  if (!attach()) {
    disconnect();
    tryAgainLater();
  }
}

bool BusReceiver::attach() {
  sd_bus* bus = bus_.get();
  sd_bus_slot* object = nullptr;
  if (sd_bus_set_method_call_timeout(bus, busPatience) < 0 ||
      sd_bus_add_object_vtable(bus, &object, rpc::objectPath, rpc::interfaceName, methods, this) <
          0) {
    return false;
  }
  object_.reset(object);
  if (sd_bus_match_signal(bus, nullptr, nullptr, "/org/freedesktop/DBus/Local",
                          "org.freedesktop.DBus.Local", "Disconnected", onDisconnected, this) < 0) {
    return false;
  }
  const auto identifier = Bundle::main().infoString(kCFBundleIdentifierKey);
  const auto name = identifier ? busNameOfIdentifier(*identifier) : std::nullopt;
  // Without flags the bus queues this connection behind an owner that is there already.
  if (name && sd_bus_request_name_async(bus, nullptr, name->c_str(), SD_BUS_NAME_QUEUE,
                                        onNameClaimed, this) < 0) {
    return false;
  }
  return sd_bus_attach_event(bus, mainEventLoop(), SD_EVENT_PRIORITY_NORMAL) >= 0;
}

void BusReceiver::disconnect() {
  retry_ = sd_event_source_disable_unref(retry_);
  forgetSenders();
  object_.reset();
  if (bus_) sd_bus_detach_event(bus_.get());
  bus_.reset();
}

void BusReceiver::tryAgainLater() {
  retryDelay_ = std::clamp(retryDelay_ * 2, firstRetry, longestRetry);
  sd_event_add_time_relative(mainEventLoop(), &retry_, CLOCK_MONOTONIC, retryDelay_,
                             retryDelay_ / 10, onRetry, this);
}

int BusReceiver::onRetry(sd_event_source*, std::uint64_t, void* self) {
  dropExceptions([&] { static_cast<BusReceiver*>(self)->connect(); });
  return 0;
}

int BusReceiver::onDisconnected(sd_bus_message*, void* self, sd_bus_error*) {
  // The connection cannot be given up from inside its own callback.
  auto* receiver = static_cast<BusReceiver*>(self);
  dropExceptions([&] {
    RunLoop::main().perform([receiver] {
      receiver->disconnect();
      receiver->tryAgainLater();
    });
  });
  return 0;
}

int BusReceiver::onNameClaimed(sd_bus_message* message, void* self, sd_bus_error*) {
  const sd_bus_error* error = sd_bus_message_get_error(message);
  if (error == nullptr) {
    static_cast<BusReceiver*>(self)->retryDelay_ = 0;
  } else if (sd_bus_error_has_name(error, SD_BUS_ERROR_ACCESS_DENIED) > 0) {
    dropExceptions([] { log("the bus does not let this application have its name"); });
  }
  return 0;
}

int BusReceiver::onCall(sd_bus_message* message, void* self, sd_bus_error*) {
  try {
    return static_cast<BusReceiver*>(self)->handleCall(message);
  } catch (...) {  // nothing may unwind through the bus library
    return refuse(message, SD_BUS_ERROR_FAILED, "the event could not be handled");
  }
}

int BusReceiver::handleCall(sd_bus_message* message) {
  const auto answer = handler_.handle([message] { return readDirectObject(message); },
                                      [this, message]() -> std::optional<AppleEventDescriptor> {
                                        const pid_t sender = processOfSender(message);
                                        if (sender <= 0) return std::nullopt;
                                        return processAddress(sender);
                                      });
  switch (answer.status) {
    case noErr:
      return sd_bus_reply_method_return(message, rpc::resultSignature, answer.result.c_str());
    case errAEEventNotHandled:
      return refuse(message, SD_BUS_ERROR_UNKNOWN_METHOD, "no handler is installed");
    case paramErr:
      return refuse(message, SD_BUS_ERROR_INVALID_ARGS, "not an RPC event");
    default:
      return refuse(message, SD_BUS_ERROR_FAILED, "the event could not be handled");
  }
}

// The process that sent a message, as the bus itself knows it; 0 when it is gone already.
pid_t BusReceiver::processOfSender(sd_bus_message* message) {
  const char* name = sd_bus_message_get_sender(message);
  if (name == nullptr) return 0;
  if (const auto known = senders_.find(name); known != senders_.end())
    return known->second.processID;
  if (senders_.size() >= mostSenders) forgetSenders();

  sd_bus_creds* found = nullptr;
  if (sd_bus_get_name_creds(bus_.get(), name, SD_BUS_CREDS_PID, &found) < 0) return 0;
  const BusCredentials credentials(found);
  Sender sender;
  if (sd_bus_creds_get_pid(found, &sender.processID) < 0) return 0;
  sd_bus_slot* watch = nullptr;
  const auto ignore = [](sd_bus_message*, void*, sd_bus_error*) { return 0; };
  if (sd_bus_add_match_async(bus_.get(), &watch, bus::ownerMatch(name).c_str(), onSenderGone,
                             ignore, this) < 0) {
    return sender.processID;
  }
  sender.watch.reset(watch);
  const pid_t processID = sender.processID;
  rememberProcessInformation(processID);
  senders_.emplace(name, std::move(sender));
  return processID;
}

int BusReceiver::onSenderGone(sd_bus_message* message, void* self, sd_bus_error*) {
  auto& senders = static_cast<BusReceiver*>(self)->senders_;
  const char* name = nullptr;
  if (sd_bus_message_read(message, "s", &name) <= 0) return 0;
  dropExceptions([&] {
    if (const auto known = senders.find(std::string_view(name)); known != senders.end()) {
      forgetProcessInformation(known->second.processID);
      senders.erase(known);
    }
  });
  return 0;
}

void BusReceiver::forgetSenders() {
  for (const auto& [name, sender] : senders_) forgetProcessInformation(sender.processID);
  senders_.clear();
}

}  // namespace qbdkr
