#include "HeldThreads.h"

#include <stdexcept>
#include <utility>

namespace qbdkr::test {

bool HeldThreads::hold(std::function<void()> body) {
  onStart();
  const std::lock_guard lock(mutex_);
  if (refuses) return false;
  bodies_.push_back(std::move(body));
  return true;
}

std::function<bool(std::function<void()>)> HeldThreads::starter() {
  return [this](std::function<void()> body) { return hold(std::move(body)); };
}

std::size_t HeldThreads::count() const {
  const std::lock_guard lock(mutex_);
  return bodies_.size();
}

void HeldThreads::runNext() {
  std::function<void()> body;
  {
    const std::lock_guard lock(mutex_);
    if (bodies_.empty()) throw std::logic_error("no thread was started");
    body = std::move(bodies_.front());
    bodies_.erase(bodies_.begin());
  }
  body();
}

void HeldThreads::runAll() {
  while (count() > 0) runNext();
}

void HeldThreads::clear() {
  const std::lock_guard lock(mutex_);
  bodies_.clear();
  onStart = [] {};
  refuses = false;
}

}  // namespace qbdkr::test
