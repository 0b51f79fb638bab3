#include "Platform/Workspace/OwnScopeLinux.h"

#include <poll.h>
#include <systemd/sd-id128.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include "Platform/Events/DBus/SdBus.h"
#include "Platform/Events/DBus/SessionBus.h"
#include "Platform/Record/Record.h"

namespace qbdkr {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* service = "org.freedesktop.systemd1";
constexpr const char* objectPath = "/org/freedesktop/systemd1";
constexpr const char* interfaceName = "org.freedesktop.systemd1.Manager";

// A unit's name has 255 characters at most; the rest of it takes 44.
constexpr std::size_t longestIdentifier = 200;

// Escapes as the service manager does. Desktops escape the hyphen too, which separates the parts.
std::string escaped(std::string_view identifier) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const char character : identifier) {
    const auto byte = static_cast<unsigned char>(character);
    const bool isPlain = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                         (byte >= 'a' && byte <= 'z') || byte == '_' || byte == '.' || byte == ':';
    const std::string next = isPlain ? std::string(1, character)
                                     : std::string("\\x") + digits[byte / 16U] + digits[byte % 16U];
    if (text.size() + next.size() > longestIdentifier) break;
    text += next;
  }
  return text;
}

std::string randomText() {
  sd_id128_t number{};
  std::array<char, SD_ID128_STRING_MAX> text{};
  if (sd_id128_randomize(&number) < 0)
    return std::to_string(Clock::now().time_since_epoch().count());
  return sd_id128_to_string(number, text.data());
}

// The request for one scope, on a connection of its own. The process has been moved when the
// manager's job for the scope is done, which is later than its answer.
class ScopeRequest {
 public:
  ScopeRequest(UniqueBus bus, std::string unit, const std::string& description, pid_t process)
      : bus_(std::move(bus)), unit_(std::move(unit)) {
    if (bus_ && leadsOutOfNamespace(bus_.get())) {
      // The manager would move another process of the same number.
      end(Manager::present, "the bus belongs to another namespace of processes");
    } else if (!bus_ || ask(description, process) < 0) {
      end(Manager::missing);
    }
  }
  ScopeRequest(const ScopeRequest&) = delete;
  ScopeRequest& operator=(const ScopeRequest&) = delete;
  ~ScopeRequest() = default;

  // Waits for the outcome. Returns whether there is a manager on this bus.
  [[nodiscard]] bool await(Clock::time_point deadline) {
    while (!manager_) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
      if (left.count() <= 0) end(Manager::present, "the service manager does not answer");
      const int result = manager_ ? 0 : sd_bus_process(bus_.get(), nullptr);
      if (result < 0) end(Manager::missing);
      if (result != 0 || manager_) continue;
      pollfd event{sd_bus_get_fd(bus_.get()), static_cast<short>(sd_bus_get_events(bus_.get())), 0};
      ::poll(&event, 1, static_cast<int>(left.count()));
    }
    return manager_ == Manager::present;
  }

  // Returns why there is no scope; empty if there is one.
  [[nodiscard]] const std::string& obstacle() const { return obstacle_; }

 private:
  enum class Manager { missing, present };

  int ask(const std::string& description, pid_t process) {
    const std::string match = std::string("type='signal',sender='") + service + "',path='" +
                              objectPath + "',interface='" + interfaceName +
                              "',member='JobRemoved'";
    sd_bus_message* made = nullptr;
    int result = sd_bus_message_new_method_call(bus_.get(), &made, service, objectPath,
                                                interfaceName, "StartTransientUnit");
    const BusMessage call(made);
    if (result >= 0) {
      result = sd_bus_message_append(made, "ssa(sv)a(sa(sv))", unit_.c_str(), "fail", 4,
                                     "Description", "s", description.c_str(), "Slice", "s",
                                     "app.slice", "CollectMode", "s", "inactive-or-failed", "PIDs",
                                     "au", 1, static_cast<std::uint32_t>(process), 0);
    }
    // A bus without a service manager is not to look for a program that is one.
    if (result >= 0) result = sd_bus_message_set_auto_start(made, 0);
    if (result >= 0) {
      result =
          sd_bus_add_match_async(bus_.get(), nullptr, match.c_str(), onJobRemoved, nullptr, this);
    }
    if (result >= 0) {
      result = sd_bus_call_async(bus_.get(), nullptr, made, onAnswer, this, UINT64_MAX);
    }
    return result;
  }

  void end(Manager manager, std::string obstacle = {}) {
    if (manager_) return;
    manager_ = manager;
    obstacle_ = std::move(obstacle);
  }

  static int onJobRemoved(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
    auto& request = *static_cast<ScopeRequest*>(self);
    const char* unit = nullptr;
    const char* result = nullptr;
    if (sd_bus_message_read(message, "uoss", nullptr, nullptr, &unit, &result) <= 0 ||
        unit != request.unit_) {
      return 0;
    }
    const std::string_view outcome(result);
    request.end(Manager::present,
                outcome == "done" ? "" : "the start of its scope: " + std::string(outcome));
    return 0;
  }

  static int onAnswer(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
    const sd_bus_error* error = sd_bus_message_get_error(message);
    if (error == nullptr) return 0;  // the job is under way
    const bool isMissing = sd_bus_error_has_name(error, SD_BUS_ERROR_SERVICE_UNKNOWN) > 0 ||
                           sd_bus_error_has_name(error, SD_BUS_ERROR_NAME_HAS_NO_OWNER) > 0;
    const char* text = error->message != nullptr ? error->message : error->name;
    static_cast<ScopeRequest*>(self)->end(isMissing ? Manager::missing : Manager::present, text);
    return 0;
  }

  UniqueBus bus_;
  const std::string unit_;
  std::optional<Manager> manager_;  // set at the end
  std::string obstacle_;
};

}  // namespace

std::string scopeNameFor(std::string_view identifier, std::string_view random) {
  return "app-" + escaped(identifier) + '-' + std::string(random) + ".scope";
}

// The manager is on the bus of the user. The session may have another one.
void moveIntoOwnScope(pid_t process, const std::string& identifier) {
  const auto deadline = Clock::now() + busPatience;
  const std::string unit = scopeNameFor(identifier, randomText());
  const std::string description = "Helper agent " + identifier;
  std::string obstacle = "neither the session's bus nor the user's has a service manager";
  for (const auto& open : {openSessionBus, openUserBus}) {
    ScopeRequest request(open(), unit, description, process);
    if (!request.await(deadline)) continue;
    obstacle = request.obstacle();
    if (obstacle.empty()) return record(StepKind::helperInOwnScope, process, unit);
    break;
  }
  record(StepKind::helperNotInOwnScope, process, identifier, obstacle);
}

}  // namespace qbdkr
