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

using MessageKind = direct::RingReader::Message::Kind;

// One answer of any size may wait.
constexpr std::size_t mostWaiting = mostEventContent;
// Between them other work of the loop gets its turn.
constexpr int mostMessagesInATurn = 8;
// All that a sender can have written before this process began to read.
constexpr std::size_t mostBytesAtOnce = direct::ringSize;
// More than an honest sender passes.
constexpr int mostNewsAtOnce = 16;

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
  } catch (const std::exception&) {  // no memory
    breakOff();
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
  if (!hasBegun_ || hasEnded_) return;
  const auto kept = shared_from_this();
  bool hasNews = false;
  for (int i = 0; i < mostNewsAtOnce && takeNews(); ++i) hasNews = true;
  if (hasLeft_) {
    readAll();
    if (!hasEnded_) end();
  } else if (hasNews) {
    readSomeLater();
  }
}

void DirectPeer::readAll() {
  const auto kept = shared_from_this();
  std::size_t bytes = 0;
  while (bytes < mostBytesAtOnce) {
    const auto read = readOne();
    if (read == 0) return;
    bytes += read;
  }
}

// Returns the bytes that were read; 0 without an event.
std::size_t DirectPeer::readOne() {
  if (!hasBegun_ || hasEnded_) return 0;
  try {
    const auto message = ring_.next();
    if (message.kind == MessageKind::none) return 0;
    auto request =
        message.kind == MessageKind::bytes ? direct::readRequest(message.bytes) : std::nullopt;
    if (request) {
      taker_(*std::move(request));
      return message.bytes.size();
    }
  } catch (const std::exception&) {  // no memory
  }
  breakOff();
  return 0;
}

// Ends the connection with a sender that broke the contract, or cannot be served. The end tells it
// if it waits.
void DirectPeer::breakOff() {
  ::shutdown(socket_.get(), SHUT_RDWR);
  end();
}

void DirectPeer::end() {
  hasEnded_ = true;
  watch();
  taker_ = nullptr;
  if (const auto onEnd = std::exchange(onEnd_, nullptr)) onEnd();
}

void DirectPeer::setPaused(bool isPaused) {
  if (std::exchange(isPaused_, isPaused) && !isPaused) readSomeLater();
}

void DirectPeer::answer(direct::Serial request, const RPCTransport::Answer& answer) {
  try {
    write(request, answer);
    send();
  } catch (const std::exception&) {  // no memory
    const auto kept = shared_from_this();
    breakOff();
  }
}

void DirectPeer::write(direct::Serial request, const RPCTransport::Answer& answer) {
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
