#include <poll.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include <ClientComm/Bundle.h>

#include "Platform/Events/DBus/BusName.h"
#include "Platform/Events/DBus/BusSender.h"
#include "Platform/Events/DBus/NameOwner.h"
#include "Platform/Processes/NativeProcesses.h"
#include "Platform/Record/Record.h"
#include "Platform/Workspace/DetachedProcessLinux.h"
#include "Platform/Workspace/NativeWorkspace.h"
#include "Platform/Workspace/OwnScopeLinux.h"

namespace qbdkr {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds checkInPatience(10);

int millisecondsUntil(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

struct ProcessAnswer {
  bool hasCome = false;
  std::optional<pid_t> process;
};

int onProcess(sd_bus_message* message, void* answered, sd_bus_error* /*error*/) {
  auto& answer = *static_cast<ProcessAnswer*>(answered);
  answer.hasCome = true;
  std::uint32_t process = 0;
  if (sd_bus_message_read(message, "u", &process) > 0) answer.process = static_cast<pid_t>(process);
  return 0;
}

// Events reach an application through its name on the bus.
class NamedApplication final : public Reachability {
 public:
  explicit NamedApplication(const std::string& identifier)
      : identifier_(identifier), name_(busNameOfIdentifier(identifier)) {
    if (name_) question_.emplace(identifier_);
  }

  [[nodiscard]] bool isKnown() override {
    if (name_ && !owner_) owner_.emplace(*name_);
    return owner_ && owner_->bus() != nullptr;
  }

  // The bus may not have seen yet that the process has ended. Process IDs of another namespace do
  // not tell; then asks again.
  [[nodiscard]] bool isThere() override {
    if (!question_ || !question_->isAffirmed()) return false;
    const bool isForeign = BusSender::shared().foreignProcess().has_value();
    const auto process = isForeign ? std::nullopt : processOfPeer(identifier_);
    if (!process) return BusSender::Question(identifier_).isAffirmed();
    const Descriptor end = endOfProcess(*process);
    return end ? !end.isReadable() : errno != ESRCH;
  }

  // Without a bus only the end of the process can be seen.
  [[nodiscard]] Presence await(const Descriptor& end, Clock::time_point deadline) override {
    if (!name_) return Presence::running;
    if (!isKnown()) owner_.emplace(*name_);  // connects again: the bus may be back
    owner_->read();
    while (!hasOwner() && !end.isReadable()) {
      if (Clock::now() >= deadline) return Presence::running;
      waitFor(end, deadline);
    }
    return hasOwner() ? Presence::reachable : Presence::ended;
  }

 private:
  [[nodiscard]] bool hasOwner() const { return owner_->isThere().value_or(false); }

  void waitFor(const Descriptor& end, Clock::time_point deadline) {
    std::array<pollfd, 2> events{{{end.get(), POLLIN, 0}, owner_->event()}};
    ::poll(events.data(), events.size(), millisecondsUntil(deadline));
    owner_->read();
  }

  const std::string identifier_;
  const std::optional<std::string> name_;
  std::optional<BusSender::Question> question_;
  std::optional<NameOwner> owner_;  // made when it is awaited
};

}  // namespace

std::unique_ptr<Reachability> Reachability::of(const Bundle& bundle) {
  return std::make_unique<NamedApplication>(bundle.infoString(kCFBundleIdentifierKey).value_or(""));
}

std::optional<Opening> openApplication(const Bundle& bundle, Reachability& reachability,
                                       Placement placement) {
  const auto executable = bundle.executablePath();
  if (!executable) return std::nullopt;
  const std::string identifier = bundle.infoString(kCFBundleIdentifierKey).value_or("");
  std::function<void(pid_t)> place;
  if (placement == Placement::ownScope) {
    place = [&identifier](pid_t processID) { moveIntoOwnScope(processID, identifier); };
  }
  auto process = startDetached(*executable, place);
  if (!process) return std::nullopt;
  if (process->notPlaced != 0) {
    record(StepKind::helperNotInOwnScope, process->processID, identifier,
           std::generic_category().message(process->notPlaced));
  }
  Opening opening{Presence::running, std::move(process->ended)};
  opening.presence = reachability.await(opening.end, Clock::now() + checkInPatience);
  // The name may be that of another process.
  if (opening.end.isReadable()) opening.presence = Presence::ended;
  return opening;
}

// Asks without waiting: a connection to a bus that is stuck is never made.
std::optional<pid_t> processOfPeer(const std::string& bundleIdentifier) {
  const auto deadline = Clock::now() + busPatience;
  const auto name = busNameOfIdentifier(bundleIdentifier);
  if (!name) return std::nullopt;
  ProcessAnswer answer;  // outlives the connection
  NameOwner owner(*name);
  if (owner.bus() == nullptr ||
      sd_bus_call_method_async(owner.bus(), nullptr, bus::service, bus::objectPath,
                               bus::interfaceName, "GetConnectionUnixProcessID", onProcess, &answer,
                               "s", name->c_str()) < 0) {
    return std::nullopt;
  }
  while (!answer.hasCome && owner.bus() != nullptr && Clock::now() < deadline) {
    pollfd event = owner.event();
    ::poll(&event, 1, millisecondsUntil(deadline));
    owner.read();
  }
  return answer.process;
}

}  // namespace qbdkr
