#include <mutex>

#include <ClientComm/Cancellation.h>

#include "Platform/Base/ForkSafeMutex.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Events/CancellationState.h"

namespace qbdkr {
namespace {

// Guards the listeners of all handles: one lock is enough for what is done in a moment.
ForkSafeMutex& listenersGuard() {
  static NeverDestroyed mutex([] { return ForkSafeMutex(); });
  return *mutex;
}

}  // namespace

CancellationState::Ticket CancellationState::add(std::weak_ptr<CancellationListener> listener) {
  const std::lock_guard lock(listenersGuard());
  if (isCancelled_) return 0;
  listeners_.emplace(last_ + 1, std::move(listener));
  return ++last_;
}

void CancellationState::remove(Ticket ticket) noexcept {
  const std::lock_guard lock(listenersGuard());
  listeners_.erase(ticket);
}

void CancellationState::cancel() noexcept {
  decltype(listeners_) listeners;
  {
    const std::lock_guard lock(listenersGuard());
    isCancelled_ = true;
    listeners.swap(listeners_);
  }
  for (const auto& [ticket, listener] : listeners) {
    if (const auto kept = listener.lock()) kept->onCancel();
  }
}

Cancellation::Cancellation() : state_(std::make_shared<CancellationState>()) { listenersGuard(); }

void Cancellation::cancel() const noexcept {
  // The listeners may drop the last other copy, and this one, which a stop token's callback holds.
  if (const auto kept = state_) kept->cancel();
}

bool Cancellation::isCancelled() const noexcept { return state_ && state_->isCancelled(); }

}  // namespace qbdkr
