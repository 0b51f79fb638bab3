#include "Platform/Events/DBus/PeerInquiry.h"

#include <cstdint>
#include <utility>

#include "Platform/Base/DropExceptions.h"
#include "Platform/Events/BundleIdentifier.h"
#include "Platform/Events/DBus/BusName.h"
#include "Platform/Loop/NativeLoopLinux.h"

namespace qbdkr {
namespace {

// Returns the application of a process, but only one that could own its name on the bus.
std::optional<std::string> applicationOf(pid_t processID) {
  auto identifier = bundleIdentifierOf({0, static_cast<std::uint32_t>(processID)});
  if (identifier && !busNameOfIdentifier(*identifier)) identifier.reset();
  return identifier;
}

}  // namespace

bool PeerInquiry::open(std::function<void()> onLost) {
  onLost_ = std::move(onLost);
  sd_bus* opened = nullptr;
  if (sd_bus_open_user(&opened) < 0) return false;
  bus_.reset(opened);
  return watchDisconnection(opened, onDisconnected, this) &&
         sd_bus_attach_event(opened, mainEventLoop(), SD_EVENT_PRIORITY_NORMAL) >= 0;
}

void PeerInquiry::close() {
  if (bus_) sd_bus_detach_event(bus_.get());
  bus_.reset();
}

int PeerInquiry::onDisconnected(sd_bus_message*, void* self, sd_bus_error*) {
  dropExceptions(static_cast<PeerInquiry*>(self)->onLost_);
  return 0;
}

std::unique_ptr<PeerInquiry::Question> PeerInquiry::ask(const std::string& peer, Answer answer) {
  auto question = std::make_unique<Question>(peer, std::move(answer));
  if (!bus_ || !question->ask(bus_.get())) question.reset();
  return question;
}

PeerInquiry::Question::Question(std::string peer, Answer answer)
    : peer_(std::move(peer)), answer_(std::move(answer)) {}

// Sets no time limit: the bus answers, or the connection ends. A limit would also pass while the
// main thread is busy elsewhere, with the answer on its way.
bool PeerInquiry::Question::ask(sd_bus* bus) {
  sd_bus_message* made = nullptr;
  if (sd_bus_message_new_method_call(bus, &made, bus::service, bus::objectPath, bus::interfaceName,
                                     "GetConnectionUnixProcessID") < 0) {
    return false;
  }
  const BusMessage message(made);
  sd_bus_slot* slot = nullptr;
  if (sd_bus_message_append(made, "s", peer_.c_str()) < 0 ||
      sd_bus_call_async(bus, &slot, made, onReply, this, UINT64_MAX) < 0) {
    return false;
  }
  slot_.reset(slot);
  return true;
}

int PeerInquiry::Question::onReply(sd_bus_message* reply, void* self, sd_bus_error*) {
  auto& question = *static_cast<Question*>(self);
  try {
    question.take(reply);
  } catch (...) {  // out of memory; the peer's events must not wait for ever
    question.bundleID_.reset();
    dropExceptions([&] { question.end(); });
  }
  return 0;
}

void PeerInquiry::Question::take(sd_bus_message* reply) {
  std::uint32_t processID = 0;
  const bool isThere = sd_bus_message_is_method_error(reply, nullptr) == 0 &&
                       sd_bus_message_read(reply, "u", &processID) > 0;
  if (bundleID_) {  // the second answer
    if (!isThere) bundleID_.reset();
    return end();
  }
  if (!isThere) return end();
  bundleID_ = applicationOf(static_cast<pid_t>(processID));
  if (!bundleID_) return end();
  // Asks once more, to see that the peer is still there: if its process executes another program,
  // its connection is closed.
  if (ask(sd_bus_message_get_bus(reply))) return;
  bundleID_.reset();
  end();
}

void PeerInquiry::Question::end() { answer_(bundleID_); }

}  // namespace qbdkr
