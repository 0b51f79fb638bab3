#include "Platform/Events/DBus/DirectPeer.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <utility>

#include <ClientComm/RunLoop.h>

#include "Platform/Base/DropExceptions.h"
#include "Platform/Events/DBus/SdBus.h"
#include "Platform/Loop/NativeLoopLinux.h"

namespace qbdkr {
namespace {

using Kind = direct::RingReader::Message::Kind;

// One answer of any size may wait.
constexpr std::size_t mostWaiting = mostEventContent;
// Between them other work of the loop gets its turn.
constexpr int mostMessagesInATurn = 8;
// A sender that has left has no more in its ring. A flood of another one must not keep the main
// thread in one call.
constexpr std::size_t mostBytesAtOnce = direct::ringSize;
constexpr int mostNewsAtOnce = 1000;

}  // namespace

DirectPeer::~DirectPeer() { close(); }

bool DirectPeer::begin() {
  if (hasBegun_) return true;
  sd_event_source* made = nullptr;
  if (sd_event_add_io(mainEventLoop(), &made, socket_.get(), EPOLLIN, onReady, this) < 0)
    return false;
  source_.reset(made);
  hasBegun_ = true;
  readSomeLater();
  return true;
}

int DirectPeer::onReady(sd_event_source*, int, std::uint32_t, void* self) {
  const auto peer = static_cast<DirectPeer*>(self)->shared_from_this();
  dropExceptions([&] {
    if (!peer->waiting_.empty()) peer->pass();
    if (peer->takeNews()) peer->readSome();
  });
  return 0;
}

// Tells whether there were any. After the sender has left, what it has written is in the ring.
bool DirectPeer::takeNews() {
  if (hasLeft_ || hasEnded_) return false;
  const auto news = direct::takeNews(socket_.get());
  if (news == direct::News::none) return false;
  ring_.noteWake();
  hasLeft_ = news == direct::News::end;
  if (hasLeft_) watch();
  return true;
}

// Reads some messages, and sleeps if there are no more.
void DirectPeer::readSome() {
  for (int i = 0; i < mostMessagesInATurn; ++i) {
    if (isPaused_ || hasEnded_) return;
    if (readOne() > 0) continue;
    if (hasEnded_) return;
    if (hasLeft_) return end();
    if (ring_.sleep()) return;
  }
  readSomeLater();
}

void DirectPeer::readSomeLater() {
  if (isToRead_ || !hasBegun_ || hasEnded_) return;
  try {
    RunLoop::main().perform([weak = weak_from_this()] {
      const auto peer = weak.lock();
      if (!peer) return;
      peer->isToRead_ = false;
      peer->readSome();
    });
    isToRead_ = true;
  } catch (const std::exception&) {  // no memory: the end tells a sender that waits
    ::shutdown(socket_.get(), SHUT_RDWR);
  }
}

// Watches the socket for what can be done. The loop tells of its end even if it is asked for
// nothing.
void DirectPeer::watch() {
  if (!source_) return;
  const std::uint32_t reading = hasEnded_ || hasLeft_ ? 0U : static_cast<std::uint32_t>(EPOLLIN);
  const std::uint32_t writing = waiting_.empty() ? 0U : static_cast<std::uint32_t>(EPOLLOUT);
  const std::uint32_t events = reading | writing;
  sd_event_source_set_io_events(source_.get(), events);
  sd_event_source_set_enabled(source_.get(), events == 0 ? SD_EVENT_OFF : SD_EVENT_ON);
}

void DirectPeer::readToEnd() {
  if (!hasBegun_) return;
  const auto kept = shared_from_this();
  for (int i = 0; i < mostNewsAtOnce && takeNews(); ++i) readSomeLater();
  std::size_t bytes = 0;
  while (bytes < mostBytesAtOnce) {
    const auto read = readOne();
    bytes += read;
    if (read == 0) break;
  }
  if (hasLeft_ && !hasEnded_ && ring_.isEmpty()) end();
}

// Returns the bytes that were read; 0 without an event.
std::size_t DirectPeer::readOne() {
  if (!hasBegun_ || hasEnded_) return 0;
  try {
    const auto message = ring_.next();
    if (message.kind == Kind::none) return 0;
    auto request = message.kind == Kind::bytes ? direct::readRequest(message.bytes) : std::nullopt;
    if (request) {
      taker_(*std::move(request));
      return message.bytes.size();
    }
  } catch (const std::exception&) {  // no memory: the end tells a sender that waits
  }
  ::shutdown(socket_.get(), SHUT_RDWR);  // it broke the contract
  end();
  return 0;
}

void DirectPeer::end() {
  hasEnded_ = true;
  watch();
  taker_ = nullptr;
  if (const auto onEnd = std::exchange(onEnd_, nullptr)) onEnd();
}

void DirectPeer::setPaused(bool isPaused) {
  isPaused_ = isPaused;
  if (!isPaused) readSomeLater();
}

void DirectPeer::answer(direct::Serial request, const RPCTransport::Answer& answer) {
  switch (answer.status) {
    case noErr:
      direct::writeResult(message_, request, answer.result ? *answer.result : std::string_view());
      break;
    case errAEEventNotHandled:
      direct::writeError(message_, request, SD_BUS_ERROR_UNKNOWN_METHOD);
      break;
    default:
      direct::writeError(message_, request, SD_BUS_ERROR_FAILED);
  }
  send();
}

void DirectPeer::answerQuestion(direct::Serial request) {
  direct::writeResult(message_, request, {});
  send();
}

void DirectPeer::send() {
  if (!socket_) return;
  if (waiting_.empty() && message_.size() <= direct::largestPacket) {
    const auto passing = direct::passPacket(socket_.get(), message_);
    // A sender that is gone needs no answer, and one that cannot have it is to know that.
    if (passing == direct::Passing::ended) ::shutdown(socket_.get(), SHUT_RDWR);
    if (passing != direct::Passing::full) return;
  }
  if (!waiting_.empty() && waitingBytes_ + message_.size() > mostWaiting) {
    const auto kept = shared_from_this();
    close();
    return end();
  }
  waitingBytes_ += message_.size();
  waiting_.push_back(std::exchange(message_, {}));
  pass();
}

// Passes on as much of the answers that wait as the socket takes.
void DirectPeer::pass() {
  while (socket_ && !waiting_.empty()) {
    const std::string_view answer = waiting_.front();
    const auto packet = answer.substr(passed_, direct::largestPacket);
    const auto passing = direct::passPacket(socket_.get(), packet);
    if (passing == direct::Passing::full) break;
    if (passing == direct::Passing::ended) {  // the events that came before are still read
      waiting_.clear();
      waitingBytes_ = 0;
      passed_ = 0;
      break;
    }
    passed_ += packet.size();
    if (passed_ < answer.size()) continue;
    waitingBytes_ -= answer.size();
    passed_ = 0;
    waiting_.pop_front();
  }
  watch();
  // This object may end here, unless the caller has it.
  if (waiting_.empty()) {
    self_.reset();
  } else {
    self_ = shared_from_this();
  }
}

void DirectPeer::close() {
  hasEnded_ = true;
  source_.reset();
  waiting_.clear();
  ::shutdown(socket_.get(), SHUT_RDWR);
  socket_ = {};
  self_.reset();
}

}  // namespace qbdkr
