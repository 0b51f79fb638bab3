#include "Platform/Workspace/RestartDamping.h"

#include <algorithm>
#include <cstddef>

namespace qbdkr {
namespace {

constexpr std::size_t mostFailures = 5;
constexpr std::chrono::seconds failureWindow(10);
constexpr std::chrono::seconds firstPause(1);
constexpr std::chrono::seconds longestPause(60);

}  // namespace

void RestartDamping::fail(Clock::time_point time) {
  std::erase_if(failures_, [time](auto earlier) { return time - earlier >= failureWindow; });
  failures_.push_back(time);
  if (pause_ == std::chrono::seconds::zero() && failures_.size() < mostFailures) return;
  failures_.clear();
  pause_ = std::clamp(pause_ * 2, firstPause, longestPause);
  pauseEnd_ = time + pause_;
}

void RestartDamping::clear() { *this = RestartDamping(); }

}  // namespace qbdkr
