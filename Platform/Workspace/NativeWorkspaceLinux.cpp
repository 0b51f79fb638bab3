#include <poll.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <ClientComm/Bundle.h>

#include "Platform/Events/DBus/BusName.h"
#include "Platform/Events/DBus/SdBus.h"
#include "Platform/Workspace/DetachedProcessLinux.h"
#include "Platform/Workspace/NativeWorkspace.h"

namespace qbdkr {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds checkInPatience(10);

int millisecondsUntil(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

// Waits until the bus has something to process, or the descriptor can be read.
void pollFor(sd_bus* bus, const Descriptor& end, Clock::time_point deadline) {
  std::array<pollfd, 2> events{{{end.get(), POLLIN, 0}, {-1, POLLIN, 0}}};
  if (bus != nullptr) {
    events[1].fd = sd_bus_get_fd(bus);
    events[1].events = static_cast<short>(sd_bus_get_events(bus));
  }
  ::poll(events.data(), events.size(), millisecondsUntil(deadline));
}

// Watches for the owner of one name, on a connection of its own. Asks without waiting: a bus that
// is stuck costs no more than the deadline.
class CheckIn {
 public:
  explicit CheckIn(const std::string& name) {
    sd_bus* opened = nullptr;
    if (sd_bus_open_user(&opened) < 0) return;
    bus_.reset(opened);
    const bool watched =
        sd_bus_add_match_async(opened, nullptr, bus::ownerMatch(name).c_str(), onOwnerChanged,
                               nullptr, this) >= 0 &&
        sd_bus_call_method_async(opened, nullptr, bus::service, bus::objectPath, bus::interfaceName,
                                 "NameHasOwner", onAnswer, this, "s", name.c_str()) >= 0;
    if (!watched) bus_.reset();
  }

  [[nodiscard]] bool isPossible() const { return static_cast<bool>(bus_); }

  // Returns whether the name has an owner now; false if the bus does not say by the deadline.
  bool isThere(Clock::time_point deadline) {
    while (!done_ && !isAnswered_ && bus_ && Clock::now() < deadline) {
      const int result = sd_bus_process(bus_.get(), nullptr);
      if (result < 0) return false;
      if (result == 0) pollFor(bus_.get(), Descriptor(), deadline);
    }
    return done_;
  }

  // Waits until the name has an owner, the process ends, or the deadline passes.
  Presence wait(const Descriptor& end, Clock::time_point deadline) {
    while (!done_) {
      const int result = bus_ ? sd_bus_process(bus_.get(), nullptr) : 0;
      if (result < 0) bus_.reset();  // without a bus only the end of the process can be seen
      if (result != 0) continue;
      if (end.isReadable()) return Presence::ended;
      if (Clock::now() >= deadline) return Presence::running;
      pollFor(bus_.get(), end, deadline);
    }
    return Presence::reachable;
  }

 private:
  static int onOwnerChanged(sd_bus_message* message, void* self, sd_bus_error*) {
    const char* name = nullptr;
    const char* before = nullptr;
    const char* after = nullptr;
    if (sd_bus_message_read(message, "sss", &name, &before, &after) > 0 && *after != '\0') {
      static_cast<CheckIn*>(self)->done_ = true;
    }
    return 0;
  }

  static int onAnswer(sd_bus_message* message, void* self, sd_bus_error*) {
    int present = 0;
    auto& checkIn = *static_cast<CheckIn*>(self);
    if (sd_bus_message_read(message, "b", &present) > 0 && present != 0) checkIn.done_ = true;
    checkIn.isAnswered_ = true;
    return 0;
  }

  UniqueBus bus_;
  bool done_ = false;        // the name has an owner
  bool isAnswered_ = false;  // the bus has said whether it had one
};

struct ProcessAnswer {
  bool hasCome = false;
  std::optional<pid_t> process;
};

int onProcess(sd_bus_message* message, void* answered, sd_bus_error*) {
  auto& answer = *static_cast<ProcessAnswer*>(answered);
  answer.hasCome = true;
  std::uint32_t process = 0;
  if (sd_bus_message_read(message, "u", &process) > 0) answer.process = static_cast<pid_t>(process);
  return 0;
}

std::optional<std::string> busNameOf(const Bundle& bundle) {
  const auto identifier = bundle.infoString(kCFBundleIdentifierKey);
  return identifier ? busNameOfIdentifier(*identifier) : std::nullopt;
}

}  // namespace

std::optional<Opening> openApplication(const Bundle& bundle) {
  const auto executable = bundle.executablePath();
  if (!executable) return std::nullopt;
  auto process = startDetached(*executable);
  if (!process) return std::nullopt;
  Opening opening{Presence::running, std::move(process->ended)};
  if (const auto name = busNameOf(bundle)) {
    opening.presence = CheckIn(*name).wait(opening.end, Clock::now() + checkInPatience);
  }
  // The name may be that of another process.
  if (opening.end.isReadable()) opening.presence = Presence::ended;
  return opening;
}

bool isReachable(const Bundle& bundle, Clock::time_point deadline) {
  const auto name = busNameOf(bundle);
  return name && CheckIn(*name).isThere(deadline);
}

Presence awaitPresence(const Bundle& bundle, const Descriptor& end, Clock::time_point deadline) {
  const auto name = busNameOf(bundle);
  if (!name) return Presence::reachable;
  CheckIn checkIn(*name);
  return checkIn.isPossible() ? checkIn.wait(end, deadline) : Presence::reachable;
}

// Asks without waiting, as CheckIn does: a connection to a bus that is stuck is never made.
std::optional<pid_t> processOfPeer(const std::string& bundleIdentifier) {
  const auto deadline = Clock::now() + busPatience;
  const auto name = busNameOfIdentifier(bundleIdentifier);
  sd_bus* opened = nullptr;
  if (!name || sd_bus_open_user(&opened) < 0) return std::nullopt;
  ProcessAnswer answer;  // outlives the call
  const UniqueBus bus(opened);
  if (sd_bus_call_method_async(opened, nullptr, bus::service, bus::objectPath, bus::interfaceName,
                               "GetConnectionUnixProcessID", onProcess, &answer, "s",
                               name->c_str()) < 0) {
    return std::nullopt;
  }
  while (!answer.hasCome && Clock::now() < deadline) {
    const int result = sd_bus_process(opened, nullptr);
    if (result < 0) return std::nullopt;
    if (result == 0) pollFor(opened, Descriptor(), deadline);
  }
  return answer.process;
}

}  // namespace qbdkr
