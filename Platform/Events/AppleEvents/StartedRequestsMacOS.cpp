#include "Platform/Events/AppleEvents/StartedRequestsMacOS.h"

#include <exception>
#include <utility>

#include <ClientComm/LogHandler.h>
#include <ClientComm/RunLoop.h>

#include "Platform/Base/AutoreleasePoolMacOS.h"
#include "Platform/Base/DetachedThread.h"
#include "Platform/Events/AppleEvents/AnswerMacOS.h"

namespace qbdkr {

StartedRequests::StartedRequests(Make make)
    : make_(std::move(make)), requests_([this] { wake(); }) {}

bool StartedRequests::start(const RPCTarget& target, RPCEvent event, const RequestLimits& limits,
                            RPCTransport::Completion completion) {
  if (!startWorker()) return false;
  requests_.add(std::make_shared<Started>(target, std::move(event), limits, std::move(completion)));
  return true;
}

bool StartedRequests::startWorker() {
  const std::lock_guard lock(mutex_);
  if (hasWorker_) return true;
  hasWorker_ = detachNewThread([this] { work(); });
  if (!hasWorker_) return false;
  static const AEEventHandlerUPP entry = NewAEEventHandlerUPP(onReply);
  if (AEInstallEventHandler(kCoreEventClass, kAEAnswer, entry, this, 0) != ::noErr) {
    log(LogLevel::error, LogCategory::bus,
        "the system does not let this application handle replies to Apple events", {});
  }
  return true;
}

void StartedRequests::wake() {
  {
    const std::lock_guard lock(mutex_);
    isStirred_ = true;
  }
  changed_.notify_all();
}

void StartedRequests::work() {
  {
    const std::lock_guard lock(mutex_);
    worker_ = std::this_thread::get_id();
  }
  for (;;) {
    const AutoreleasePool pool;
    requests_.expire(PendingRequests::Clock::now());
    if (const auto finished = requests_.takeFinished(); !finished.empty()) {
      complete(finished);
    } else if (const auto next = requests_.firstUnsent()) {
      sendNext(next);
    } else {
      const auto deadline = requests_.nextDeadline();
      std::unique_lock lock(mutex_);
      const auto isStirred = [this] { return std::exchange(isStirred_, false); };
      if (deadline == PendingRequests::Clock::time_point::max()) {
        changed_.wait(lock, isStirred);
      } else {
        changed_.wait_until(lock, deadline, isStirred);
      }
    }
  }
}

void StartedRequests::sendNext(const PendingRequests::Request& request) {
  {
    const std::lock_guard lock(mutex_);
    isSending_ = true;
  }
  if (requests_.beginSending(*request)) {
    OSErr status = paramErr;  // if memory runs out
    try {
      status = send(static_cast<Started&>(*request));
    } catch (const std::exception&) {
    }
    if (status != noErr) request->finish({status, {}});
  }
  {
    const std::lock_guard lock(mutex_);
    isSending_ = false;
  }
  changed_.notify_all();
}

OSErr StartedRequests::send(Started& request) {
  EventDescriptor message;
  const OSErr made = make_(request.target(), request.event(), message);
  if (made != noErr) return made;
  request.identifier = returnIDOf(*message.get());
  {
    // Before it is sent: the reply may be faster.
    const std::lock_guard lock(mutex_);
    waiting_.insert_or_assign(request.identifier, request.shared_from_this());
  }
  EventDescriptor reply;
  return static_cast<OSErr>(
      AESendMessage(message.get(), reply.receive(), kAEQueueReply, kNoTimeOut));
}

void StartedRequests::complete(const PendingRequests::Requests& finished) {
  {
    const std::lock_guard lock(mutex_);
    for (const auto& request : finished) {
      const auto found = waiting_.find(static_cast<Started&>(*request).identifier);
      // A number may have come round to another request.
      if (found != waiting_.end() && found->second == request) waiting_.erase(found);
    }
  }
  // One that expired unsent may be what awaitSent() waits for.
  changed_.notify_all();
  PendingRequests::complete(finished);
}

void StartedRequests::awaitSent() {
  if (!requests_.hasUnsent() && requests_.lastNumber() == 0) return;
  const auto last = requests_.lastNumber();
  std::unique_lock lock(mutex_);
  if (std::this_thread::get_id() == worker_) return;
  changed_.wait(lock, [&] { return !isSending_ && requests_.firstUnsentNumber() > last; });
}

// A reply to another part of the program is left to it.
OSErr StartedRequests::take(const AEDesc& reply) {
  PendingRequests::Request request;
  {
    const std::lock_guard lock(mutex_);
    const auto found = waiting_.find(returnIDOf(reply));
    if (found == waiting_.end()) return errAEEventNotHandled;
    request = std::move(found->second);
    waiting_.erase(found);
  }
  request->finish(readAnswer(reply));
  return noErr;
}

::OSErr StartedRequests::onReply(const ::AppleEvent* incoming, ::AppleEvent* /*reply*/,
                                 SRefCon self) {
  try {
    return static_cast<StartedRequests*>(self)->take(*incoming);
  } catch (...) {  // nothing may unwind through the Apple Event Manager
    return errAEEventFailed;
  }
}

}  // namespace qbdkr
