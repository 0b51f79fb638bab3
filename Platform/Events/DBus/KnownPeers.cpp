#include "Platform/Events/DBus/KnownPeers.h"

#include <cstdint>
#include <utility>

#include "Platform/Events/BundleIdentifier.h"
#include "Platform/Events/DBus/BusName.h"
#include "Platform/Processes/ExecutablePlaceLinux.h"

namespace qbdkr {
namespace {

constexpr std::size_t mostPeers = 4096;
constexpr std::chrono::seconds longestQuestion(1);

bool isUnique(const std::string& name) { return name.starts_with(':'); }

int keepAnswer(sd_bus_message* message, void* place, sd_bus_error* /*error*/) {
  static_cast<BusMessage*>(place)->reset(sd_bus_message_ref(message));
  return 1;
}

// Calls a method of the bus that takes a name or nothing. Returns its answer or error; null on any
// other failure.
BusMessage answerOf(sd_bus* bus, const char* method, const std::string* name) {
  sd_bus_message* made = nullptr;
  if (sd_bus_message_new_method_call(bus, &made, bus::service, bus::objectPath, bus::interfaceName,
                                     method) < 0) {
    return nullptr;
  }
  const BusMessage message(made);
  if (name != nullptr && sd_bus_message_append(made, "s", name->c_str()) < 0) return nullptr;
  // A call that waits by itself would keep what other peers send to this connection.
  BusMessage answer;
  sd_bus_slot* slot = nullptr;
  if (sd_bus_call_async(bus, &slot, made, keepAnswer, &answer, asMicroseconds(longestQuestion)) < 0)
    return nullptr;
  const BusSlot question(slot);
  while (!answer) {
    const int result = sd_bus_process(bus, nullptr);
    if (result < 0 || (result == 0 && sd_bus_wait(bus, UINT64_MAX) < 0)) return nullptr;
  }
  return answer;
}

}  // namespace

KnownPeers::KnownPeers(UniqueBus bus) : bus_(std::move(bus)) {}

void KnownPeers::learnAll() {
  const BusMessage names = answerOf(bus_.get(), "ListNames", nullptr);
  if (!names || sd_bus_message_enter_container(names.get(), SD_BUS_TYPE_ARRAY, "s") <= 0) return;
  const char* name = nullptr;
  while (known_.size() < mostPeers &&
         sd_bus_message_read_basic(names.get(), SD_BUS_TYPE_STRING, &name) > 0) {
    static_cast<void>(of(name));
  }
}

void KnownPeers::change(const std::string& name, const std::string& owner) {
  known_.erase(name);
  if (!owner.empty()) static_cast<void>(of(name));
}

const WatchedParty& KnownPeers::of(const std::string& name) {
  if (const auto found = known_.find(name); found != known_.end()) return found->second;
  if (known_.size() >= mostPeers) known_.clear();
  return known_.emplace(name, ask(name)).first->second;
}

WatchedParty KnownPeers::ask(const std::string& name) const {
  WatchedParty party;
  party.name = name;
  std::uint32_t process = 0;
  const BusMessage answer = answerOf(bus_.get(), "GetConnectionUnixProcessID", &name);
  if (!answer || sd_bus_message_read(answer.get(), "u", &process) <= 0 || process == 0) {
    return party;
  }
  party.process = static_cast<pid_t>(process);
  party.program = executableOfProcess(*party.process).value_or("");
  const auto identifier = bundleIdentifierOf({0, process});
  const auto ownName = identifier ? busNameOfIdentifier(*identifier) : std::nullopt;
  // A process may own other names than that of its application.
  if (ownName && (isUnique(name) || *ownName == name)) party.identifier = *identifier;
  return party;
}

}  // namespace qbdkr
