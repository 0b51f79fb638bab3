#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>

#include <ClientComm/Cancellation.h>

namespace qbdkr {

// Is told when a handle is cancelled.
class CancellationListener {
 public:
  CancellationListener() = default;
  CancellationListener(const CancellationListener&) = delete;
  CancellationListener& operator=(const CancellationListener&) = delete;

  // Called once at most, on the thread that cancels, without a lock. Must not wait. May still come
  // after the listener was removed.
  virtual void onCancel() noexcept = 0;

 protected:
  virtual ~CancellationListener() = default;
};

// The state that the copies of a Cancellation share. Any thread; nothing waits. Usable in a forked
// child.
class CancellationState {
 public:
  // Names a listener; 0 names none of them.
  using Ticket = std::uint64_t;

  // Returns the state of a handle; null if the handle was moved from.
  static CancellationState* of(const Cancellation& handle) { return handle.state_.get(); }

  // Adds a listener, which is not kept alive. Returns 0, and calls nothing, if the handle is
  // cancelled. Throws std::bad_alloc.
  Ticket add(std::weak_ptr<CancellationListener> listener);
  void remove(Ticket ticket) noexcept;

  void cancel() noexcept;
  [[nodiscard]] bool isCancelled() const noexcept { return isCancelled_; }

 private:
  std::atomic<bool> isCancelled_{false};
  Ticket last_ = 0;
  std::map<Ticket, std::weak_ptr<CancellationListener>> listeners_;
};

}  // namespace qbdkr
