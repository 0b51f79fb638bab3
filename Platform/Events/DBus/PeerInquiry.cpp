#include "Platform/Events/DBus/PeerInquiry.h"

#include <unistd.h>

#include <cstdint>
#include <utility>

#include "Platform/Base/DropExceptions.h"
#include "Platform/Events/BundleIdentifier.h"
#include "Platform/Events/DBus/BusName.h"
#include "Platform/Events/DBus/SessionBus.h"
#include "Platform/Loop/NativeLoopLinux.h"

namespace qbdkr {
namespace {

// Returns the application of a process, but only one that could own its name on the bus.
std::optional<std::string> applicationOf(pid_t processID) {
  auto identifier = bundleIdentifierOf({0, static_cast<std::uint32_t>(processID)});
  if (identifier && !busNameOfIdentifier(*identifier)) identifier.reset();
  return identifier;
}

// Asks the bus for the process of a connection. Sets no time limit: the bus answers, or the
// connection ends. A limit would also pass while the main thread is busy elsewhere, with the answer
// on its way. Null if the question cannot be sent.
BusSlot askForProcess(sd_bus* bus, const char* name, sd_bus_message_handler_t onAnswer,
                      void* userData) {
  sd_bus_message* made = nullptr;
  if (sd_bus_message_new_method_call(bus, &made, bus::service, bus::objectPath, bus::interfaceName,
                                     "GetConnectionUnixProcessID") < 0) {
    return {};
  }
  const BusMessage message(made);
  sd_bus_slot* slot = nullptr;
  if (sd_bus_message_append(made, "s", name) < 0 ||
      sd_bus_call_async(bus, &slot, made, onAnswer, userData, UINT64_MAX) < 0) {
    return {};
  }
  return BusSlot(slot);
}

}  // namespace

bool PeerInquiry::open(std::function<void()> onLost) {
  onLost_ = std::move(onLost);
  bus_ = openSessionBus();
  return bus_ && watchDisconnection(bus_.get(), onDisconnected, this) &&
         sd_bus_attach_event(bus_.get(), mainEventLoop(), SD_EVENT_PRIORITY_NORMAL) >= 0;
}

void PeerInquiry::close() {
  if (bus_) sd_bus_detach_event(bus_.get());
  self_.reset();
  ownProcess_.reset();
  bus_.reset();
}

// The bus answers in the order of the questions: the answer is there before that for any peer.
// Until then a process behind a proxy takes all numbers for hidden.
void PeerInquiry::askForSelf() {
  const char* name = nullptr;
  if (self_ || sd_bus_is_ready(bus_.get()) <= 0 || sd_bus_get_unique_name(bus_.get(), &name) < 0)
    return;
  self_ = askForProcess(bus_.get(), name, onSelf, this);
}

int PeerInquiry::onSelf(sd_bus_message* message, void* self, sd_bus_error*) {
  std::uint32_t process = 0;
  if (sd_bus_message_is_method_error(message, nullptr) == 0 &&
      sd_bus_message_read(message, "u", &process) > 0) {
    static_cast<PeerInquiry*>(self)->ownProcess_ = static_cast<pid_t>(process);
  }
  return 0;
}

int PeerInquiry::onDisconnected(sd_bus_message*, void* self, sd_bus_error*) {
  dropExceptions(static_cast<PeerInquiry*>(self)->onLost_);
  return 0;
}

bool PeerInquiry::isBehindProxy() const {
  return ownProcess_ ? *ownProcess_ != getpid() : leadsToProxy(bus_.get());
}

// Tells whether the bus's number of a process says nothing of a peer: it is that of the proxy
// through which this process comes too, or one of another namespace.
bool PeerInquiry::isHidden(pid_t process) const {
  return isBehindProxy() &&
         (!ownProcess_ || process == *ownProcess_ || leadsOutOfNamespace(bus_.get()));
}

std::unique_ptr<PeerInquiry::Question> PeerInquiry::ask(const std::string& peer,
                                                        std::optional<Introduction> introduction,
                                                        Answer answer) {
  auto question =
      std::make_unique<Question>(*this, peer, std::move(introduction), std::move(answer));
  if (bus_) askForSelf();
  if (!bus_ || !question->ask(bus_.get())) question.reset();
  return question;
}

PeerInquiry::Question::Question(PeerInquiry& inquiry, std::string peer,
                                std::optional<Introduction> introduction, Answer answer)
    : inquiry_(inquiry),
      peer_(std::move(peer)),
      introduction_(std::move(introduction)),
      answer_(std::move(answer)) {}

bool PeerInquiry::Question::ask(sd_bus* bus) {
  slot_ = askForProcess(bus, peer_.c_str(), onReply, this);
  return slot_ != nullptr;
}

int PeerInquiry::Question::onReply(sd_bus_message* reply, void* self, sd_bus_error*) {
  auto& question = *static_cast<Question*>(self);
  try {
    question.take(reply);
  } catch (...) {  // out of memory; the peer's events must not wait for ever
    question.found_.bundleID.reset();
    dropExceptions([&] { question.end(); });
  }
  return 0;
}

void PeerInquiry::Question::take(sd_bus_message* reply) {
  auto& [process, bundleID, isGone] = found_;
  // A proxy may hide the peer from this connection.
  if (introduction_ && inquiry_.isBehindProxy()) {
    process = introduction_->process();
    bundleID = applicationOf(*process);
    if (!introduction_->stands()) found_ = {};
    return end();
  }
  std::uint32_t number = 0;
  const bool isThere = sd_bus_message_is_method_error(reply, nullptr) == 0 &&
                       sd_bus_message_read(reply, "u", &number) > 0;
  isGone = !inquiry_.isBehindProxy() &&
           sd_bus_message_is_method_error(reply, SD_BUS_ERROR_NAME_HAS_NO_OWNER) > 0;
  if (bundleID) {  // the second answer
    if (!isThere) bundleID.reset();
    return end();
  }
  if (!isThere || inquiry_.isHidden(static_cast<pid_t>(number))) return end();
  process = static_cast<pid_t>(number);
  bundleID = applicationOf(*process);
  if (!bundleID) return end();
  // Asks once more, to see that the peer is still there: if its process executes another program,
  // its connection is closed.
  if (ask(sd_bus_message_get_bus(reply))) return;
  bundleID.reset();
  end();
}

void PeerInquiry::Question::end() { answer_(found_); }

}  // namespace qbdkr
