#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <system_error>

#include "Platform/Events/DBus/BusName.h"
#include "Platform/Events/DBus/SdBus.h"
#include "Platform/Events/DBus/SessionBus.h"
#include "Platform/Events/NativePeerLookup.h"

namespace qbdkr {
namespace {

using Clock = std::chrono::steady_clock;

// Returns the address at which the bus library looks for the session bus; empty if it has none.
std::string sessionBusAddress() {
  if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS")) return address;
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  return runtime == nullptr ? "" : "unix:path=" + std::string(runtime) + "/bus";
}

// Other ways start a program, or wait for the network.
bool leadsToSocketsOnly(std::string_view address) {
  for (;;) {
    const auto end = std::min(address.find(';'), address.size());
    if (!address.substr(0, end).starts_with("unix:")) return false;
    if (end == address.size()) return true;
    address.remove_prefix(end + 1);
    if (address.empty()) return true;
  }
}

// The question for the process of a name's owner, on a connection of its own.
class OwnerQuestion {
 public:
  // Stores the error at which the question cannot be asked; 0 if it is asked.
  explicit OwnerQuestion(const std::string& name)
      : bus_(openSessionBus()),
        error_(bus_ ? sd_bus_call_method_async(bus_.get(), nullptr, bus::service, bus::objectPath,
                                               bus::interfaceName, "GetConnectionUnixProcessID",
                                               onAnswer, this, "s", name.c_str())
                    : -errno) {}
  OwnerQuestion(const OwnerQuestion&) = delete;
  OwnerQuestion& operator=(const OwnerQuestion&) = delete;
  ~OwnerQuestion() = default;

  void await(Clock::time_point deadline) {
    while (error_ >= 0 && !isAnswered_) {
      const int result = sd_bus_process(bus_.get(), nullptr);
      if (result < 0) error_ = result;
      if (result != 0) continue;
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
      if (left.count() <= 0) return;
      pollfd event{sd_bus_get_fd(bus_.get()), static_cast<short>(sd_bus_get_events(bus_.get())), 0};
      ::poll(&event, 1, static_cast<int>(left.count()));
    }
  }

  [[nodiscard]] std::string obstacle() const {
    if (isAnswered_) return "";
    if (error_ < 0) return std::generic_category().message(-error_);
    return "it does not answer";
  }
  [[nodiscard]] std::optional<pid_t> process() const { return process_; }
  [[nodiscard]] bool isHidden() const { return bus_ && leadsToProxy(bus_.get()); }

 private:
  static int onAnswer(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
    auto& question = *static_cast<OwnerQuestion*>(self);
    std::uint32_t process = 0;
    // The end of the connection comes as an error of the library itself.
    if (sd_bus_message_is_method_error(message, SD_BUS_ERROR_NO_REPLY) > 0 ||
        sd_bus_message_is_method_error(message, SD_BUS_ERROR_DISCONNECTED) > 0) {
      question.error_ = -ECONNRESET;
      return 0;
    }
    question.isAnswered_ = true;
    if (sd_bus_message_is_method_error(message, nullptr) == 0 &&
        sd_bus_message_read(message, "u", &process) > 0 && process != 0) {
      question.process_ = static_cast<pid_t>(process);
    }
    return 0;
  }

  UniqueBus bus_;
  int error_ = 0;
  bool isAnswered_ = false;
  std::optional<pid_t> process_;
};

}  // namespace

PeerLookup lookUpNativePeer(std::string_view bundleID, std::chrono::milliseconds patience) {
  PeerLookup lookup;
  lookup.way = sessionBusAddress();
  if (lookup.way.empty()) {
    lookup.obstacle = "neither DBUS_SESSION_BUS_ADDRESS nor XDG_RUNTIME_DIR is set";
    return lookup;
  }
  lookup.isTried = leadsToSocketsOnly(lookup.way);
  if (!lookup.isTried) return lookup;
  // Without a name of the application, the bus is asked for its own.
  OwnerQuestion question(busNameOfIdentifier(bundleID).value_or(bus::service));
  question.await(Clock::now() + patience);
  lookup.obstacle = question.obstacle();
  if (busNameOfIdentifier(bundleID)) lookup.process = question.process();
  lookup.isHidden = question.isHidden();
  return lookup;
}

bool isNativeIdentifier(std::string_view bundleID) {
  return busNameOfIdentifier(bundleID).has_value();
}

}  // namespace qbdkr
