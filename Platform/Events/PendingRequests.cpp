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
  for (const std::string& text : event.arguments) size += sizeof(std::string) + text.size();
  return size;
}

CancellationState* cancellationOf(const RequestLimits& limits) {
  return limits.cancellation ? CancellationState::of(*limits.cancellation) : nullptr;
}

}  // namespace

void PendingRequest::finish(RPCTransport::Answer answered) noexcept {
  owner_->finish(*this, std::move(answered));
}

void PendingRequests::add(const Request& request, OSErr refusal) {
  request->owner_ = this;
  request->content_ = contentOf(request->event_);
  Requests one{request};
  PendingRequest::Deadlines deadline;
  if (request->limits_.deadline != forEver) {
    deadline.emplace(request->limits_.deadline, request.get());
  }
  auto* cancellation = cancellationOf(request->limits_);
  if (cancellation != nullptr) {
    request->ticket_ = cancellation->add(request);
    if (request->ticket_ == 0) refusal = userCanceledErr;
  }
  {
    const std::lock_guard lock(mutex_);
    ++count_;
    content_ += request->content_;
    request->number_ = ++lastNumber_;
    request->deadline_ = deadlines_.end();
    if (!deadline.empty())
      request->deadline_ = deadlines_.insert(deadline.extract(deadline.begin()));
    // It may have been cancelled since it was given to the handle.
    if (request->isOver_) refusal = request->answer_.status;
    request->isOver_ = false;
    request->list_ = &unsent_;
    request->place_ = one.begin();
    unsent_.splice(unsent_.end(), one);
    ++unsentCount_;
    if (refusal == noErr) refusal = refusalLocked(*request);
    if (refusal != noErr) finishLocked(*request, {refusal, {}});
  }
  wake_();
}

OSErr PendingRequests::refusalLocked(const PendingRequest& request) const {
  if (request.limits_.deadline <= Clock::now()) return errAETimeout;
  return count_ > mostPendingRequests || content_ > mostPendingContent ? paramErr : OSErr{noErr};
}

PendingRequests::Request PendingRequests::firstUnsent() const {
  const std::lock_guard lock(mutex_);
  return unsent_.empty() ? nullptr : unsent_.front();
}

bool PendingRequests::beginSending(PendingRequest& request) {
  const std::lock_guard lock(mutex_);
  if (request.isOver_) return false;
  move(request, sent_);
  return true;
}

bool PendingRequests::isOver(const PendingRequest& request) const {
  const std::lock_guard lock(mutex_);
  return request.isOver_;
}

std::uint64_t PendingRequests::lastNumber() const {
  const std::lock_guard lock(mutex_);
  return lastNumber_;
}

std::uint64_t PendingRequests::firstUnsentNumber() const {
  const std::lock_guard lock(mutex_);
  return unsent_.empty() ? std::numeric_limits<std::uint64_t>::max() : unsent_.front()->number_;
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
  if (request.isOver_) return false;
  request.isOver_ = true;
  request.answer_ = std::move(answer);
  if (request.list_ == nullptr) return false;  // is about to be added
  if (request.deadline_ != deadlines_.end()) deadlines_.erase(request.deadline_);
  request.deadline_ = deadlines_.end();
  const bool isFirst = finished_.empty();
  move(request, finished_);
  return isFirst;
}

void PendingRequests::move(PendingRequest& request, Requests& to) noexcept {
  if (request.list_ == &unsent_) --unsentCount_;
  to.splice(to.end(), *request.list_, request.place_);
  request.list_ = &to;
}

void PendingRequests::expire(Clock::time_point now) noexcept {
  const std::lock_guard lock(mutex_);
  while (!deadlines_.empty() && deadlines_.begin()->first <= now) {
    finishLocked(*deadlines_.begin()->second, {errAETimeout, {}});
  }
}

void PendingRequests::finishThose(Requests& requests, OSErr status,
                                  const Condition& isAffected) noexcept {
  bool isAny = false;
  {
    const std::lock_guard lock(mutex_);
    for (auto next = requests.begin(); next != requests.end();) {
      PendingRequest& request = **next++;
      if (isAffected && !isAffected(request)) continue;
      finishLocked(request, {status, {}});
      isAny = true;
    }
  }
  if (isAny) wake_();
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
    content_ -= request->content_;
  }
  return taken;
}

void PendingRequests::complete(const Requests& requests) {
  for (const Request& request : requests) {
    if (auto* cancellation = cancellationOf(request->limits_))
      cancellation->remove(request->ticket_);
    dropExceptions([&] { request->completion_(std::move(request->answer_)); });
  }
}

}  // namespace qbdkr
