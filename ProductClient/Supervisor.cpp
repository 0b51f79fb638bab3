#include "ProductClient/Supervisor.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "Platform/Base/DropExceptions.h"

namespace qbdkr {
namespace {

// A helper agent that lived this long did not fail at its start.
constexpr std::chrono::seconds shortestLife(10);
constexpr std::chrono::milliseconds firstRepetition(50);
constexpr std::chrono::milliseconds longestRepetition(60'000);

}  // namespace

Supervisor::Supervisor(std::unique_ptr<PeerWatch> watch, Actions actions)
    : watch_(std::move(watch)), actions_(std::move(actions)) {}

void Supervisor::set(Supervision supervision) {
  {
    const std::lock_guard lock(mutex_);
    newSupervision_ = supervision;
  }
  watch_->wake();
}

void Supervisor::failed() {
  {
    const std::lock_guard lock(mutex_);
    hasFailed_ = true;
  }
  watch_->wake();
}

void Supervisor::succeeded() {
  if (isPresent_) return;
  {
    const std::lock_guard lock(mutex_);
    hasSucceeded_ = true;
  }
  watch_->wake();
}

void Supervisor::run() {
  for (;;) dropExceptions([this] { turn(); });
}

void Supervisor::turn() {
  switch (watch_->wait(nextDeadline())) {
    case PeerWatch::News::appeared:
      appeared();
      break;
    case PeerWatch::News::vanished:
      vanished();
      break;
    case PeerWatch::News::woken:
      takeMessages();
      break;
    case PeerWatch::News::resumed:
      resumed();
      break;
    case PeerWatch::News::none:
      break;
  }
  checkIfDue();
  pingIfDue();
}

Supervisor::Clock::time_point Supervisor::nextDeadline() const {
  auto deadline = checkAt_.value_or(Clock::time_point::max());
  if (pingedAt_) deadline = std::min(deadline, *pingedAt_ + supervision_.unresponsiveAfter);
  return deadline;
}

void Supervisor::appeared() {
  isPresent_ = true;
  appearedAt_ = Clock::now();
  checkAt_.reset();
  pauseEnd_ = Clock::time_point::min();
  repetition_ = {};
  actions_.found();  // may take long, and must not count as the time of a ping
  startPings();
}

void Supervisor::startPings() {
  pingedAt_.reset();
  if (!isPresent_ || supervision_.unresponsiveAfter.count() <= 0) return;
  watch_->ping();
  pingedAt_ = Clock::now();
}

void Supervisor::vanished() {
  const auto now = Clock::now();
  pingedAt_.reset();
  // The first news may be that it is not there, which is no loss.
  if (isPresent_.exchange(false)) {
    if (now - appearedAt_ >= shortestLife) damping_.clear();
    damping_.fail(now);
    actions_.lost();
  }
  checkAt(now, damping_.pauseEnd());
}

void Supervisor::checkAt(Clock::time_point now, Clock::time_point due) {
  checkAt_ = std::max(now, due);
  if (due <= now) return;
  pauseEnd_ = due;
  actions_.paused(due);
}

std::optional<Supervisor::Clock::time_point> Supervisor::pausedUntil() const {
  const auto end = pauseEnd_.load();
  if (end <= Clock::now()) return std::nullopt;
  return end;
}

// The time of the suspension counts for nothing. A pause goes on.
void Supervisor::resumed() {
  startPings();
  if (!checkAt_) actions_.check();
}

void Supervisor::takeMessages() {
  bool hasFailed = false;
  bool hasSucceeded = false;
  std::optional<Supervision> supervision;
  {
    const std::lock_guard lock(mutex_);
    hasFailed = std::exchange(hasFailed_, false);
    hasSucceeded = std::exchange(hasSucceeded_, false);
    supervision = std::exchange(newSupervision_, std::nullopt);
  }
  if (supervision) {
    supervision_ = *supervision;
    startPings();
  }
  if (isPresent_ || checkAt_) return;
  const auto now = Clock::now();
  if (hasSucceeded) {
    repetition_ = std::clamp(repetition_ * 2, firstRepetition, longestRepetition);
    checkAt_ = now + repetition_;
  }
  if (!hasFailed) return;
  damping_.fail(now);
  checkAt(now, std::max(damping_.pauseEnd(), actions_.pausedUntil().value_or(now)));
}

void Supervisor::checkIfDue() {
  if (!checkAt_ || Clock::now() < *checkAt_) return;
  checkAt_.reset();
  actions_.recover();
}

void Supervisor::pingIfDue() {
  if (!pingedAt_ || Clock::now() < *pingedAt_ + supervision_.unresponsiveAfter) return;
  if (watch_->isAnswered()) return startPings();
  pingedAt_.reset();
  actions_.end();
  startPings();  // in case it is still there
}

}  // namespace qbdkr
