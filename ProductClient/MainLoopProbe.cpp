#include "ProductClient/MainLoopProbe.h"

#include <mutex>

#include <ClientComm/RunLoop.h>

#include "Platform/Loop/MainThread.h"

namespace qbdkr {

MainLoop MainLoopProbe::state(std::chrono::milliseconds patience) {
  if (isOnMainThread()) return MainLoop::unknown;
  const auto asked = question();
  std::unique_lock lock(asked->mutex);
  const bool isAnswered =
      asked->answered.wait_for(lock, patience, [&] { return asked->isAnswered.load(); });
  return isAnswered ? MainLoop::runs : MainLoop::standsStill;
}

// Asks again only after the last question was answered.
std::shared_ptr<MainLoopProbe::Question> MainLoopProbe::question() {
  auto asked = std::make_shared<Question>();
  {
    const std::lock_guard lock(mutex_);
    if (last_ && !last_->isAnswered) return last_;
    last_ = asked;
  }
  RunLoop::main().perform([asked] {
    const std::lock_guard lock(asked->mutex);
    asked->isAnswered = true;
    asked->answered.notify_all();
  });
  return asked;
}

}  // namespace qbdkr
