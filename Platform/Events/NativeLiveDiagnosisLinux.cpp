#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <system_error>
#include <vector>

#include "Platform/Events/DBus/BusName.h"
#include "Platform/Events/DBus/SdBus.h"
#include "Platform/Events/DBus/SessionBus.h"
#include "Platform/Events/NativeLiveDiagnosis.h"
#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

// A call with a time limit, and its answer or its error.
class Exchange {
 public:
  Exchange(sd_bus* bus, const char* target, const char* path, const char* interface,
           const char* method, const char* text, std::chrono::microseconds patience) {
    sd_bus_message* made = nullptr;
    result_ = sd_bus_message_new_method_call(bus, &made, target, path, interface, method);
    const BusMessage message(made);
    if (result_ >= 0) result_ = sd_bus_message_set_auto_start(made, 0);
    if (result_ >= 0 && text != nullptr) result_ = sd_bus_message_append(made, "s", text);
    sd_bus_message* answer = nullptr;
    if (result_ >= 0) result_ = sd_bus_call(bus, made, asMicroseconds(patience), &error_, &answer);
    answer_.reset(answer);
  }
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;
  ~Exchange() { sd_bus_error_free(&error_); }

  [[nodiscard]] sd_bus_message* answer() const { return answer_.get(); }
  [[nodiscard]] bool hasError(const char* name) const {
    return sd_bus_error_has_name(&error_, name) > 0;
  }
  [[nodiscard]] bool isLate() const { return result_ == -ETIMEDOUT; }
  [[nodiscard]] std::string message() const {
    if (error_.message != nullptr) return error_.message;
    return result_ < 0 ? std::generic_category().message(-result_) : "its answer is no text";
  }

 private:
  int result_ = 0;
  sd_bus_error error_{};
  BusMessage answer_;
};

Exchange askBus(sd_bus* bus, const char* method, const std::string& name) {
  return {bus,    bus::service, bus::objectPath, bus::interfaceName,
          method, name.c_str(), busPatience};
}

// The first is the owner; the others wait for the name.
std::vector<std::string> queueFor(sd_bus* bus, const std::string& name) {
  std::vector<std::string> queue;
  const auto asked = askBus(bus, "ListQueuedOwners", name);
  if (asked.answer() == nullptr ||
      sd_bus_message_enter_container(asked.answer(), SD_BUS_TYPE_ARRAY, "s") <= 0) {
    return queue;
  }
  const char* owner = nullptr;
  while (sd_bus_message_read_basic(asked.answer(), SD_BUS_TYPE_STRING, &owner) > 0) {
    queue.emplace_back(owner);
  }
  return queue;
}

std::optional<pid_t> processOf(sd_bus* bus, const std::string& name) {
  const auto asked = askBus(bus, "GetConnectionUnixProcessID", name);
  std::uint32_t process = 0;
  if (asked.answer() == nullptr || sd_bus_message_read(asked.answer(), "u", &process) <= 0) {
    return std::nullopt;
  }
  return static_cast<pid_t>(process);
}

// Tells whether the main run loop of a process takes what is sent to it: the bus library answers
// this there, for any process.
bool takesMessages(sd_bus* bus, const std::string& connection) {
  constexpr std::chrono::milliseconds loopPatience(800);
  const Exchange ping(bus, connection.c_str(), "/", "org.freedesktop.DBus.Peer", "Ping", nullptr,
                      loopPatience);
  return !ping.isLate();
}

// Bounds for processes that send anything: an honest text has the record, 64 KiB, and findings.
constexpr std::size_t longestText = std::size_t{1} << 20U;
constexpr std::size_t longestMessage = 500;

void ask(sd_bus* bus, const std::string& connection, std::chrono::seconds patience,
         LiveDiagnosis& diagnosis) {
  const std::string process = "process " + std::to_string(diagnosis.process.value_or(0));
  diagnosis.isStuck = !takesMessages(bus, connection);
  if (diagnosis.isStuck) {
    diagnosis.obstacle =
        process + " does not answer within 0.8 s: its main run loop is busy or does not run";
    return;
  }
  if (patience.count() == 0) return;
  const Exchange asked(bus, connection.c_str(), rpc::objectPath, rpc::diagnosisInterface,
                       rpc::textMember, nullptr, patience);
  const char* text = nullptr;
  if (asked.answer() != nullptr &&
      sd_bus_message_read(asked.answer(), rpc::resultSignature, &text) > 0) {
    diagnosis.text = std::string(text, ::strnlen(text, longestText));
  } else if (asked.isLate()) {
    diagnosis.obstacle =
        process + " gives no diagnosis within " + std::to_string(patience.count()) + " s";
  } else if (asked.hasError(SD_BUS_ERROR_UNKNOWN_METHOD) ||
             asked.hasError(SD_BUS_ERROR_UNKNOWN_INTERFACE) ||
             asked.hasError(SD_BUS_ERROR_UNKNOWN_OBJECT)) {
    diagnosis.obstacle = process + " offers no diagnosis";
  } else {
    diagnosis.obstacle =
        process + " gives no diagnosis: " + escaped(asked.message(), {}, longestMessage);
  }
}

}  // namespace

LiveDiagnosis nativeDiagnosisOf(const std::string& identifier, std::optional<pid_t> process,
                                std::chrono::seconds patience) {
  LiveDiagnosis diagnosis;
  const auto name = busNameOfIdentifier(identifier);
  if (!name) {
    diagnosis.obstacle = identifier + " cannot be the identifier of an application";
    return diagnosis;
  }
  const UniqueBus bus = openSessionBus();
  if (!bus) {
    diagnosis.obstacle =
        "cannot connect to the session bus: " + std::generic_category().message(errno);
    return diagnosis;
  }
  for (const std::string& connection : queueFor(bus.get(), *name)) {
    const auto owner = processOf(bus.get(), connection);
    if (!owner || (process && owner != process)) continue;
    diagnosis.process = owner;
    ask(bus.get(), connection, patience, diagnosis);
    return diagnosis;
  }
  diagnosis.obstacle = (process ? "process " + std::to_string(*process) : identifier) +
                       " takes no events on this session bus";
  return diagnosis;
}

}  // namespace qbdkr
