#include "support/RecordingTransport.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <utility>

#include "Platform/Events/AppleEvents/RPCAppleEvent.h"

namespace qbdkr::test {

AppleEvent inboundAppleEvent(const RPCEvent& event, pid_t sender) {
  AppleEvent inbound = appleEventOf({}, event);
  const auto processID = static_cast<std::int32_t>(sender);
  std::string address(sizeof processID, '\0');
  std::memcpy(address.data(), &processID, sizeof processID);
  inbound.setAttributeDescriptor(keyAddressAttr,
                                 AppleEventDescriptor::withBytes(typeKernelProcessID, address));
  return inbound;
}

RecordingTransport& RecordingTransport::installed() {
  static auto& transport = []() -> RecordingTransport& {
    auto& made = *new RecordingTransport;
    RPCTransport::replaceShared(&made);
    return made;
  }();
  return transport;
}

void RecordingTransport::reset() {
  const std::lock_guard lock(mutex_);
  sent_.clear();
  answerers_.clear();
  answer_ = {};
  flushStatus_ = noErr;
}

void RecordingTransport::answerWith(Answer answer) {
  const std::lock_guard lock(mutex_);
  answer_ = std::move(answer);
}

void RecordingTransport::answer(std::string_view methodName, Answer answer) {
  this->answer(methodName, Answerer([answer = std::move(answer)](const Sent&) { return answer; }));
}

void RecordingTransport::answer(std::string_view methodName, Answerer answerer) {
  const std::lock_guard lock(mutex_);
  answerers_.insert_or_assign(std::string(methodName), std::move(answerer));
}

std::vector<RecordingTransport::Sent> RecordingTransport::sent() const {
  const std::lock_guard lock(mutex_);
  return sent_;
}

std::vector<RPCEvent> RecordingTransport::sentEvents() const {
  std::vector<RPCEvent> events;
  for (const Sent& sent : sent()) events.push_back(sent.event);
  return events;
}

std::vector<std::string> RecordingTransport::sentMethods() const {
  std::vector<std::string> methods;
  for (const RPCEvent& event : sentEvents()) methods.push_back(event.methodName.value_or(""));
  return methods;
}

std::size_t RecordingTransport::countOfLocked(std::string_view methodName) const {
  return static_cast<std::size_t>(std::ranges::count_if(
      sent_, [&](const Sent& sent) { return sent.event.methodName == methodName; }));
}

std::size_t RecordingTransport::countOf(std::string_view methodName) const {
  const std::lock_guard lock(mutex_);
  return countOfLocked(methodName);
}

bool RecordingTransport::waitForMethod(std::string_view methodName, std::size_t count,
                                       std::chrono::milliseconds time) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, time, [&] { return countOfLocked(methodName) >= count; });
}

std::optional<std::string> RecordingTransport::deliver(const RPCEvent& event,
                                                       const std::optional<std::string>& sender) {
  Handler handler;
  {
    const std::lock_guard lock(mutex_);
    handler = handler_;
  }
  if (!handler) throw std::logic_error("no handler is installed");
  return handler(event, sender);
}

bool RecordingTransport::hasHandler() const {
  const std::lock_guard lock(mutex_);
  return handler_ != nullptr;
}

RPCTransport::Answer RecordingTransport::send(Sent sent) {
  Answerer answerer;
  Answer answer;
  {
    const std::lock_guard lock(mutex_);
    sent_.push_back(sent);
    answer = answer_;
    const auto found = answerers_.find(sent.event.methodName.value_or(""));
    if (found != answerers_.end()) answerer = found->second;
    changed_.notify_all();
  }
  if (answerer) answer = answerer(sent);
  return answer;
}

OSErr RecordingTransport::post(const RPCTarget& target, const RPCEvent& event) {
  return send({Kind::post, target, event}).status;
}

RPCTransport::Answer RecordingTransport::ask(const RPCTarget& target, const RPCEvent& event) {
  return send({Kind::ask, target, event});
}

OSErr RecordingTransport::flush(std::chrono::steady_clock::time_point deadline) {
  const std::lock_guard lock(mutex_);
  flushDeadline_ = deadline;
  return flushStatus_;
}

void RecordingTransport::answerFlushWith(OSErr status) {
  const std::lock_guard lock(mutex_);
  flushStatus_ = status;
}

std::chrono::steady_clock::time_point RecordingTransport::flushDeadline() const {
  const std::lock_guard lock(mutex_);
  return flushDeadline_;
}

bool RecordingTransport::start(const RPCTarget& target, RPCEvent event, const RequestLimits& limits,
                               Completion completion) {
  if (!canStart) return false;
  std::thread([this, target, event = std::move(event), limits, completion = std::move(completion)] {
    if (limits.cancellation && limits.cancellation->isCancelled()) {
      completion({userCanceledErr, {}});
    } else if (limits.deadline <= RequestLimits::Clock::now()) {
      completion({errAETimeout, {}});
    } else {
      completion(send({Kind::start, target, event}));
    }
  }).detach();
  return true;
}

void RecordingTransport::setHandler(Handler handler) {
  const std::lock_guard lock(mutex_);
  handler_ = std::move(handler);
}

void RecordingTransport::removeHandler() {
  const std::lock_guard lock(mutex_);
  handler_ = nullptr;
}

}  // namespace qbdkr::test
