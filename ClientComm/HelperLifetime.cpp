#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include <ClientComm/HelperLifetime.h>
#include <ClientComm/RunLoop.h>

#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Events/RPCTransport.h"

namespace qbdkr {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using Standing = RPCTransport::Standing;

// Waits until a part of the process's standing has lasted for a time. Main run loop only.
class Watch {
 public:
  // The news of a part that does not last yet comes by itself, or this watch asks every TIME.
  enum class News { come, areAskedFor };

  Watch(std::optional<Clock::time_point> Standing::*part, News news) : part_(part), news_(news) {}

  void begin(milliseconds time, std::function<void()> action) {
    time_ = time;
    action_ = time.count() > 0 ? std::move(action) : nullptr;
    checkAfter(time);
  }

  void check() {
    if (!action_) return;
    const auto since = RPCTransport::shared().standing().*part_;
    if (!since) {
      if (news_ == News::areAskedFor) checkAfter(time_);
      return;
    }
    const auto left = std::chrono::ceil<milliseconds>(*since + time_ - Clock::now());
    if (left.count() > 0) return checkAfter(left);
    std::exchange(action_, nullptr)();
  }

 private:
  void checkAfter(milliseconds time) {
    if (timer_) timer_->invalidate();
    timer_.reset();
    if (!action_) return;
    timer_ = RunLoop::main().scheduleTimer(time, [this](const RunLoopTimer&) {
      // Each check says when the next one is due.
      std::exchange(timer_, nullptr)->invalidate();
      check();
    });
  }

  std::optional<Clock::time_point> Standing::*const part_;
  const News news_;
  milliseconds time_{0};
  std::function<void()> action_;
  std::shared_ptr<RunLoopTimer> timer_;
};

Watch& idleWatch() {
  static NeverDestroyed watch([] { return Watch(&Standing::idleSince, Watch::News::areAskedFor); });
  return *watch;
}

Watch& busWatch() {
  static NeverDestroyed watch([] { return Watch(&Standing::lostSince, Watch::News::come); });
  return *watch;
}

void begin(Watch& watch, milliseconds time, std::function<void()> action) {
  if (!action) action = [] { RunLoop::main().stop(); };
  RunLoop::main().perform([&watch, time, action = std::move(action)] {
    RPCTransport::shared().watchStanding([] { busWatch().check(); });
    watch.begin(time, action);
  });
}

}  // namespace

void endWhenIdle(milliseconds time, std::function<void()> action) {
  begin(idleWatch(), time, std::move(action));
}

void endWithBus(milliseconds grace, std::function<void()> action) {
  begin(busWatch(), grace, std::move(action));
}

bool serveWhatHasCome(Clock::time_point deadline) {
  RunLoop& loop = RunLoop::main();
  const auto isServed = std::make_shared<bool>(false);  // the answer may come after the deadline
  RPCTransport::shared().whenHandled([isServed] { *isServed = true; });
  pollfd readable{loop.descriptor(), POLLIN, 0};
  for (;;) {
    loop.dispatch();
    if (*isServed) return true;
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    ::poll(&readable, 1, static_cast<int>(std::min<std::int64_t>(left, INT32_MAX)));
  }
}

}  // namespace qbdkr
