#include "ProductClient/AutoStart.h"

#include <chrono>
#include <utility>

namespace qbdkr {
namespace {

constexpr std::chrono::seconds interval(60);

}  // namespace

AutoStart::AutoStart(std::function<void()> start) : start_(std::move(start)) {}

void AutoStart::scheduleOn(RunLoop& loop) {
  auto timer = loop.scheduleTimer(interval, [this](const RunLoopTimer& ticking) {
    if (isInUse(&ticking)) start_();
  });
  const std::lock_guard lock(mutex_);
  timer_ = std::move(timer);
}

void AutoStart::cancel() {
  const std::lock_guard lock(mutex_);
  if (timer_) timer_->invalidate();
  timer_.reset();
}

bool AutoStart::isInUse(const RunLoopTimer* timer) {
  const std::lock_guard lock(mutex_);
  return timer != nullptr && timer == timer_.get();
}

}  // namespace qbdkr
