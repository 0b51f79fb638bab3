#include "ProductClient/HelperStates.h"

#include <exception>
#include <mutex>
#include <utility>

#include <ClientComm/RunLoop.h>

#include "Platform/Base/DropExceptions.h"

namespace qbdkr {
namespace {

template <class State>
bool is(const std::optional<HelperState>& state) {
  return state && std::holds_alternative<State>(*state);
}

}  // namespace

bool HelperStates::setHandler(HelperStateHandler handler) {
  std::shared_ptr<const HelperStateHandler> made;
  if (handler) made = std::make_shared<const HelperStateHandler>(std::move(handler));
  bool isUnknown = false;
  {
    const std::lock_guard lock(mutex_);
    waiting_.clear();
    // Without a handler only these states can be relied on.
    if (!handler_ && !isInstalling_ && !is<HelperLaunching>(latest_)) latest_.reset();
    if (made && latest_) waiting_.push_back(*latest_);
    isUnknown = made && !latest_;
    handler_.swap(made);  // the one before is destroyed without the lock
    areWanted_ = handler_ != nullptr;
  }
  wakeMainLoop();
  return isUnknown;
}

HelperStates::Moment HelperStates::moment() const {
  const std::lock_guard lock(mutex_);
  return moment_;
}

std::optional<HelperState> HelperStates::latest() const {
  const std::lock_guard lock(mutex_);
  return latest_;
}

// Makes a change with the mutex held, and wakes the main loop for it.
template <class Change>
void HelperStates::apply(const Change& change) noexcept {
  dropExceptions([&] {
    {
      const std::lock_guard lock(mutex_);
      change();
    }
    wakeMainLoop();
  });
}

void HelperStates::tell(const HelperState& state) noexcept {
  apply([&] { add(state); });
}

void HelperStates::tellUnlessOutdated(Moment since, const HelperState& state) noexcept {
  apply([&] {
    if (moment_ == since) add(state);
  });
}

void HelperStates::tellLoss() noexcept {
  apply([&] {
    ++moment_;
    if (mayBeLost()) add(HelperLost());
  });
}

void HelperStates::tellLossUnlessOutdated(Moment since) noexcept {
  apply([&] {
    if (moment_ == since && mayBeLost()) add(HelperLost());
  });
}

void HelperStates::forget() noexcept {
  apply([&] {
    ++moment_;
    if (!isInstalling_) latest_.reset();
  });
}

void HelperStates::beginInstallation() noexcept {
  apply([&] {
    isInstalling_ = true;
    ++moment_;
  });
}

void HelperStates::endInstallation() noexcept {
  apply([&] {
    isInstalling_ = false;
    ++moment_;
  });
}

bool HelperStates::mayBeLost() const { return !latest_ || is<HelperRunning>(latest_); }

void HelperStates::add(const HelperState& state) {
  const bool isProgress = std::holds_alternative<HelperInstalling>(state);
  if (isInstalling_ && !isProgress && !std::holds_alternative<HelperReplaced>(state)) return;
  if (latest_ == state) return;
  ++moment_;
  latest_ = state;
  if (!handler_) return;
  if (isProgress && !waiting_.empty() &&
      std::holds_alternative<HelperInstalling>(waiting_.back())) {
    waiting_.back() = state;
    return;
  }
  if (waiting_.size() == mostWaiting) waiting_.pop_front();
  waiting_.push_back(state);
}

// One task delivers one state: a handler that runs the loop gets the next ones inside.
void HelperStates::wakeMainLoop() {
  {
    const std::lock_guard lock(mutex_);
    if (wakeUps_ >= waiting_.size()) return;
    ++wakeUps_;
  }
  try {
    RunLoop::main().perform([states = weak_from_this()] {
      if (const auto present = states.lock()) present->deliver();
    });
  } catch (const std::exception&) {  // of memory or descriptors: the next task makes up for it
    const std::lock_guard lock(mutex_);
    --wakeUps_;
  }
}

void HelperStates::deliver() {
  std::shared_ptr<const HelperStateHandler> handler;
  std::optional<HelperState> state;
  {
    const std::lock_guard lock(mutex_);
    --wakeUps_;
    if (waiting_.empty()) return;
    handler = handler_;
    state = std::move(waiting_.front());
    waiting_.pop_front();
  }
  wakeMainLoop();  // in case that failed before
  (*handler)(*state);
}

}  // namespace qbdkr
