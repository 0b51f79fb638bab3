#include "Platform/Events/PendingRequests.h"

#include <limits>
#include <mutex>
#include <utility>

#include "Platform/Base/DropExceptions.h"

namespace qbdkr {
namespace {

constexpr auto forEver = RequestLimits::Clock::time_point::max();

std::size_t contentOf(const RPCEvent& event) {
  std::size_t size = sizeof(PendingRequest) + event.className.value_or("").size() +
                     event.methodName.value_or("").size();
  for (const std::string& text : event.arguments) size += sizeof text + text.size();
  return size;
}

CancellationState* cancellationOf(const RequestLimits& limits) {
  return limits.cancellation ? CancellationState::of(*limits.cancellation) : nullptr;
}

}  // namespace

void PendingRequest::finish(RPCTransport::Answer answered) noexcept {
  owner->finish(*this, std::move(answered));
}

void PendingRequests::add(const Request& request, OSErr refusal) {
  request->owner = this;
  request->content = contentOf(request->event);
  Requests one{request};
  PendingRequest::Deadlines deadline;
  if (request->limits.deadline != forEver) {
    deadline.emplace(request->limits.deadline, request.get());
  }
  auto* cancellation = cancellationOf(request->limits);
  if (cancellation != nullptr) {
    request->ticket = cancellation->add(request);
    if (request->ticket == 0) refusal = userCanceledErr;
  }
  {
    const std::lock_guard lock(mutex_);
    ++count_;
    content_ += request->content;
    request->number = ++lastNumber_;
    request->deadline = deadlines_.end();
    if (!deadline.empty())
      request->deadline = deadlines_.insert(deadline.extract(deadline.begin()));
    // It may have been cancelled since it was given to the handle.
    if (request->isOver) refusal = request->answer.status;
    request->isOver = false;
    request->list = &unsent_;
    request->place = one.begin();
    unsent_.splice(unsent_.end(), one);
    ++unsentCount_;
    if (refusal == noErr) refusal = refusalLocked(*request);
    if (refusal != noErr) finishLocked(*request, {refusal, {}});
  }
  wake_();
}

OSErr PendingRequests::refusalLocked(const PendingRequest& request) const {
  if (request.limits.deadline <= Clock::now()) return errAETimeout;
  return count_ > mostPendingRequests || content_ > mostPendingContent ? paramErr : OSErr{noErr};
}

PendingRequests::Request PendingRequests::firstUnsent() const {
  const std::lock_guard lock(mutex_);
  return unsent_.empty() ? nullptr : unsent_.front();
}

bool PendingRequests::beginSending(PendingRequest& request) {
  const std::lock_guard lock(mutex_);
  if (request.isOver) return false;
  move(request, sent_);
  return true;
}

std::uint64_t PendingRequests::lastNumber() const {
  const std::lock_guard lock(mutex_);
  return lastNumber_;
}

std::uint64_t PendingRequests::firstUnsentNumber() const {
  const std::lock_guard lock(mutex_);
  return unsent_.empty() ? std::numeric_limits<std::uint64_t>::max() : unsent_.front()->number;
}

void PendingRequests::finish(PendingRequest& request, RPCTransport::Answer answer) noexcept {
  bool isFirst = false;
  {
    const std::lock_guard lock(mutex_);
    isFirst = finishLocked(request, std::move(answer));
  }
  if (isFirst) wake_();
}

// Returns whether no other request was over.
bool PendingRequests::finishLocked(PendingRequest& request, RPCTransport::Answer answer) noexcept {
  if (request.isOver) return false;
  request.isOver = true;
  request.answer = std::move(answer);
  if (request.list == nullptr) return false;  // is about to be added
  if (request.deadline != deadlines_.end()) deadlines_.erase(request.deadline);
  request.deadline = deadlines_.end();
  const bool isFirst = finished_.empty();
  move(request, finished_);
  return isFirst;
}

void PendingRequests::move(PendingRequest& request, Requests& to) noexcept {
  if (request.list == &unsent_) --unsentCount_;
  to.splice(to.end(), *request.list, request.place);
  request.list = &to;
}

void PendingRequests::expire(Clock::time_point now) noexcept {
  const std::lock_guard lock(mutex_);
  while (!deadlines_.empty() && deadlines_.begin()->first <= now) {
    finishLocked(*deadlines_.begin()->second, {errAETimeout, {}});
  }
}

void PendingRequests::finishThose(Requests& requests, OSErr status) noexcept {
  {
    const std::lock_guard lock(mutex_);
    if (requests.empty()) return;
    while (!requests.empty()) finishLocked(*requests.front(), {status, {}});
  }
  wake_();
}

PendingRequests::Clock::time_point PendingRequests::nextDeadline() const {
  const std::lock_guard lock(mutex_);
  return deadlines_.empty() ? forEver : deadlines_.begin()->first;
}

bool PendingRequests::hasOpen() const {
  const std::lock_guard lock(mutex_);
  return !unsent_.empty() || !sent_.empty();
}

bool PendingRequests::hasFinished() const {
  const std::lock_guard lock(mutex_);
  return !finished_.empty();
}

PendingRequests::Requests PendingRequests::takeFinished() {
  Requests taken;
  const std::lock_guard lock(mutex_);
  taken.swap(finished_);
  for (const Request& request : taken) {
    --count_;
    content_ -= request->content;
  }
  return taken;
}

void PendingRequests::complete(const Requests& requests) {
  for (const Request& request : requests) {
    if (auto* cancellation = cancellationOf(request->limits)) cancellation->remove(request->ticket);
    dropExceptions([&] { request->completion(std::move(request->answer)); });
  }
}

}  // namespace qbdkr
