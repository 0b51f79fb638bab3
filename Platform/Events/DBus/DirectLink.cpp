#include "Platform/Events/DBus/DirectLink.h"

#include <sys/socket.h>

#include <utility>

#include "Platform/Base/DropExceptions.h"
#include "Platform/Events/DBus/BusAnswer.h"
#include "Platform/Events/DBus/BusMessages.h"
#include "Platform/Record/Record.h"

namespace qbdkr {
namespace {

using PacketKind = direct::PacketReader::Packet::Kind;

// As often a sender of many events hears from the bus who is gone.
constexpr std::chrono::microseconds lookInterval(200);

// Tells whether an event may fit into a message, without writing it.
bool mayFit(const RPCEvent& event) {
  std::size_t size = event.className ? event.className->size() : 0;
  if (event.methodName) size += event.methodName->size();
  for (const std::string& text : event.arguments) size += text.size();
  return size <= direct::largestMessage;
}

RPCTransport::Answer answerOf(const direct::Answer& answer) {
  if (!answer.error.empty()) {
    const std::string name(answer.error);
    const sd_bus_error error{name.c_str(), nullptr, 0};
    return {statusOfError(&error), std::nullopt};
  }
  if (answer.result.size() > mostEventContent) return {errAEEventNotHandled, std::nullopt};
  return {noErr, std::string(answer.result)};
}

}  // namespace

std::shared_ptr<DirectLink> DirectLink::offer(std::shared_ptr<sd_bus> bus, const std::string& name,
                                              const std::string& identifier) {
  auto sockets = direct::makeSocketPair();
  auto ring = direct::RingWriter::make();
  if (!sockets || !ring) return nullptr;
  const Descriptor memory = ring->takeDescriptor();
  auto link = std::make_shared<DirectLink>(std::move(bus), identifier, std::move(sockets->kept),
                                           *std::move(ring));
  const BusMessage message =
      newMethodCall(link->bus_.get(), name, rpc::directInterface, rpc::connectMember);
  sd_bus_slot* slot = nullptr;
  if (!message ||
      sd_bus_message_append(message.get(), rpc::connectSignature, sockets->given.get(),
                            memory.get()) < 0 ||
      sd_bus_call_async(link->bus_.get(), &slot, message.get(), onAgreement, link.get(),
                        UINT64_MAX) < 0) {
    return nullptr;
  }
  link->offer_.reset(slot);
  return link;
}

DirectLink::DirectLink(std::shared_ptr<sd_bus> bus, std::string identifier, Descriptor socket,
                       direct::RingWriter ring)
    : bus_(std::move(bus)),
      identifier_(std::move(identifier)),
      socket_(std::move(socket)),
      ring_(std::move(ring)) {}

int DirectLink::onAgreement(sd_bus_message* reply, void* self, sd_bus_error*) {
  auto& link = *static_cast<DirectLink*>(self);
  const char* sender = sd_bus_message_get_sender(reply);
  link.isAnswered_ = sender != nullptr && *sender == ':';
  link.state_ = State::refused;  // if memory runs out
  dropExceptions([&] { link.takeAgreement(reply); });
  if (link.state_ == State::refused) {
    link.socket_ = {};
    link.ring_.reset();
  }
  return 1;
}

// Sends the last message on the bus to the process that agreed: the name may have passed on.
void DirectLink::takeAgreement(sd_bus_message* reply) {
  const char* sender = sd_bus_message_get_sender(reply);
  int memory = -1;
  if (sd_bus_message_is_method_error(reply, nullptr) > 0 || sender == nullptr ||
      sd_bus_message_read(reply, rpc::agreementSignature, &memory) <= 0 || !ring_->attach(memory)) {
    return;
  }
  peer_ = sender;
  const BusMessage message =
      newMethodCall(bus_.get(), peer_, rpc::directInterface, rpc::beginMember);
  if (!message || sd_bus_message_set_expect_reply(message.get(), 0) < 0 ||
      sd_bus_send(bus_.get(), message.get(), nullptr) < 0) {
    return;
  }
  state_ = State::open;
  record(StepKind::directConnectionBegun, identifier_, peer_);
}

bool DirectLink::post(const RPCEvent& event) {
  const auto serial = nextSerial();
  if (!write(serial, false, event) || !pass()) return false;
  lastPost_ = serial;
  return true;
}

bool DirectLink::ask(const RPCEvent& event, OnAnswer onAnswer, void* user, direct::Serial* serial) {
  const auto number = nextSerial();
  if (!write(number, true, event)) return false;
  await(number, onAnswer, user);
  if (!pass(number)) return false;
  if (serial != nullptr) *serial = number;
  return true;
}

bool DirectLink::askWhetherTaken(OnAnswer onAnswer, void* user, direct::Serial& serial) {
  serial = nextSerial();
  direct::writeFlush(message_, serial);
  await(serial, onAnswer, user);
  return pass(serial);
}

void DirectLink::awaitEnd(OnAnswer onAnswer, void* user, direct::Serial& serial) {
  serial = nextSerial();
  await(serial, onAnswer, user);
}

// Writes the message for an event. One that is too large for the connection goes over the bus, as
// does one that the bus is to refuse.
bool DirectLink::write(direct::Serial serial, bool expectsAnswer, const RPCEvent& event) {
  const bool isWritten = mayFit(event) && direct::writeCall(message_, serial, expectsAnswer, event);
  return isWritten && message_.size() <= direct::largestMessage;
}

// Passes the message on, to which an answer may be awaited. A peer with no room has it on the bus,
// where there is more. One that cannot be woken, for want of memory in the system, reads the
// message when this process leaves.
bool DirectLink::pass(direct::Serial awaited) {
  const bool isThere = isOpen() && isPeerThere(awaited != 0);
  if (isThere && ring_->write(message_)) {
    if (ring_->mustWakeReader() && !direct::passWake(socket_.get())) leave();
    return true;
  }
  forget(awaited);  // before the end calls for its answer
  if (isOpen() && !isThere) close();
  return false;
}

// Looks before each request and for each sleep of the peer, which cost system calls anyhow. Posts
// to a peer that ends at work may be lost until the next look, as they are on the bus.
bool DirectLink::isPeerThere(bool looks) {
  const auto time = Clock::now();
  if (!looks && !ring_->isReaderAsleep() && time - lastLook_ < lookInterval) return true;
  lastLook_ = time;
  return !direct::isGone(socket_.get());
}

direct::Serial DirectLink::nextSerial() {
  if (++serial_ == 0) ++serial_;
  return serial_;
}

void DirectLink::await(direct::Serial serial, OnAnswer onAnswer, void* user) {
  awaited_.insert_or_assign(serial, Awaited{onAnswer, user});
}

void DirectLink::read() {
  bool isGood = false;  // an answer for which memory is missing ends the connection
  dropExceptions([&] {
    const auto packet = packets_.next(socket_.get());
    isGood =
        packet.kind == PacketKind::none || (packet.kind == PacketKind::bytes && take(packet.bytes));
  });
  if (!isGood) close();
}

// Takes an answer, or a part of one. False if it breaks the contract.
bool DirectLink::take(std::string_view bytes) {
  if (partialSize_ == 0) {
    const auto size = direct::sizeOfAnswer(bytes);
    if (!size) return false;
    if (*size > bytes.size()) {
      partialSize_ = *size;
      partial_ = bytes;
      return true;
    }
  } else {
    partial_ += bytes;
    if (partial_.size() < partialSize_) return true;
    bytes = partial_;
  }
  const auto answer = direct::readAnswer(bytes);
  if (!answer) return false;
  const auto found = awaited_.find(answer->serial);
  const Awaited awaited = found == awaited_.end() ? Awaited{} : found->second;
  if (awaited.onAnswer != nullptr) {
    auto taken = answerOf(*answer);
    awaited_.erase(found);
    awaited.onAnswer(std::move(taken), answer->result.size(), awaited.user);
  }
  partialSize_ = 0;
  partial_ = {};
  return true;
}

void DirectLink::leave() {
  if (!isOpen()) return;
  state_ = State::left;
  ring_.reset();
  ::shutdown(socket_.get(), SHUT_WR);
  record(StepKind::directConnectionLeft, identifier_);
}

void DirectLink::drop() {
  if (isOffered()) return close();
  leave();
}

void DirectLink::close() {
  if (state_ == State::closed) return;
  state_ = State::closed;
  offer_.reset();
  ring_.reset();
  // A forked child may hold the socket, which is to end for the peer all the same.
  ::shutdown(socket_.get(), SHUT_RDWR);
  socket_ = {};
  for (const auto& [serial, awaited] : std::exchange(awaited_, {})) {
    awaited.onAnswer({connectionInvalid, std::nullopt}, 0, awaited.user);
  }
}

}  // namespace qbdkr
