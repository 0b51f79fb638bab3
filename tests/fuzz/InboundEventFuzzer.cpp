// Dispatches inbound RPC events of any content to the services of this library. The dispatcher must
// answer, or throw its one exception.

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include <ClientComm/AppleEvent.h>
#include <ClientComm/Exceptions.h>
#include <ClientComm/QBHPAppleEventProcesser.h>
#include <ClientComm/QBHPHelperControl.h>

#include "Platform/Events/RPCTransport.h"

namespace {

using qbdkr::AppleEvent;
using qbdkr::AppleEventDescriptor;

// Sends nothing and receives nothing: the fuzzer calls the dispatcher itself.
class NoTransport final : public qbdkr::RPCTransport {
 public:
  qbdkr::OSErr post(const qbdkr::RPCTarget&, const qbdkr::RPCEvent&) override {
    return qbdkr::procNotFound;
  }
  Answer ask(const qbdkr::RPCTarget&, const qbdkr::RPCEvent&) override {
    return {qbdkr::procNotFound, {}};
  }
  bool start(const qbdkr::RPCTarget&, qbdkr::RPCEvent, const qbdkr::RequestLimits&,
             Completion) override {
    return false;
  }
  void setHandler(Handler) override {}
  void removeHandler() override {}
};

// Takes values from the input until it is empty.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

  std::uint8_t byte() {
    if (left_ == 0) return 0;
    --left_;
    return *data_++;
  }

  std::string text() {
    const std::size_t size = std::min<std::size_t>(byte(), left_);
    std::string value(reinterpret_cast<const char*>(data_), size);
    data_ += size;
    left_ -= size;
    return value;
  }

  [[nodiscard]] bool empty() const { return left_ == 0; }

 private:
  const std::uint8_t* data_;
  std::size_t left_;
};

// Returns a name that mostly exists: the calls then reach the services.
std::string className(Input& input) {
  const char* const known[] = {"QBHPHelperControl", "QBHPGetDataByHelper", "QBHPHelperCommunicate"};
  const std::uint8_t choice = input.byte();
  return choice < 192 ? known[choice % 3] : input.text();
}

std::string methodName(Input& input) {
  const char* const known[] = {"helperExitNotify:", "checkServerOpenCallBack::::",
                               "start:prodeuctVersion:", "clientIDFormHelper"};
  const std::uint8_t choice = input.byte();
  return choice < 192 ? known[choice % 4] : input.text();
}

AppleEventDescriptor item(Input& input, int depth) {
  switch (input.byte() % 8) {
    case 0:
      return {};
    case 1:
      return AppleEventDescriptor::withBytes(qbdkr::typeProcessSerialNumber, input.text());
    case 2: {
      auto list = AppleEventDescriptor::list();
      while (depth < 8 && !input.empty() && input.byte() % 4 != 0) {
        list.insertDescriptor(item(input, depth + 1), 0);
      }
      return list;
    }
    default:
      return AppleEventDescriptor::withString(input.text());
  }
}

AppleEventDescriptor ownAddress() {
  const auto process = static_cast<std::int32_t>(getpid());
  std::string bytes(sizeof process, '\0');
  std::memcpy(bytes.data(), &process, sizeof process);
  return AppleEventDescriptor::withBytes(qbdkr::typeKernelProcessID, bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static NoTransport transport;
  qbdkr::RPCTransport::replaceShared(&transport);
  static auto& control = qbdkr::QBHPHelperControl::share();
  control.setHelperCtrlDelegate(nullptr);

  Input input(data, size);
  const std::uint8_t shape = input.byte();
  auto directObject = AppleEventDescriptor::list();
  directObject.insertDescriptor(
      shape % 16 == 1 ? item(input, 0) : AppleEventDescriptor::withString(className(input)), 0);
  directObject.insertDescriptor(
      shape % 16 == 2 ? item(input, 0) : AppleEventDescriptor::withString(methodName(input)), 0);
  auto arguments = AppleEventDescriptor::list();
  while (!input.empty()) arguments.insertDescriptor(item(input, 0), 0);
  if (shape % 16 != 3) directObject.insertDescriptor(std::move(arguments), 0);

  AppleEvent event(qbdkr::kCoreEventClass, qbdkr::kAECall, {}, qbdkr::kAutoGenerateReturnID,
                   qbdkr::kAnyTransactionID);
  if (shape % 16 != 5) {
    event.setParamDescriptor(qbdkr::keyDirectObject, std::move(directObject));
  }
  event.setAttributeDescriptor(qbdkr::keyAddressAttr,
                               shape % 16 == 4 ? item(input, 0) : ownAddress());
  AppleEvent reply;
  try {
    qbdkr::QBHPAppleEventProcesser::share().process(event, reply);
  } catch (const qbdkr::InvalidArgumentException&) {
    // The dispatcher throws it for an event with an argument that is not text.
  }
  return 0;
}
