#include <sys/event.h>
#include <time.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "Platform/Base/Descriptor.h"
#include "Platform/Events/NativePeerWatch.h"
#include "Platform/Processes/NativeProcesses.h"
#include "Platform/Processes/RunningApplications.h"

namespace qbdkr {
namespace {

constexpr uintptr_t wakeEvent = 1;

// Watches the process of an application. The system tells its end, but no start: the process is
// looked for at each wake-up, as after a launch.
class ProcessWatch final : public PeerWatch {
 public:
  ProcessWatch(std::string bundleID, Descriptor queue)
      : bundleID_(std::move(bundleID)), queue_(std::move(queue)) {}

  News wait(Clock::time_point deadline) override {
    if (!isPresent_ && watchProcess()) {
      isPresent_ = true;
      return News::appeared;
    }
    if (!std::exchange(isKnown_, true) && !isPresent_) return News::vanished;
    struct kevent event {};
    if (!receive(event, deadline)) return News::none;
    if (event.filter != EVFILT_PROC) return News::woken;
    isPresent_ = false;
    return News::vanished;
  }

  void wake() override {
    struct kevent trigger {};
    EV_SET(&trigger, wakeEvent, EVFILT_USER, 0, NOTE_TRIGGER, 0, nullptr);
    ::kevent(queue_.get(), &trigger, 1, nullptr, 0, nullptr);
  }

  // Applications here answer no pings beside their own events.
  void ping() override {}
  [[nodiscard]] bool isAnswered() const override { return true; }

 private:
  bool watchProcess() {
    const auto processes = processesOfApplication(bundleID_, "");
    if (!processes || processes->empty()) return false;
    struct kevent exit {};
    EV_SET(&exit, static_cast<uintptr_t>(processes->front()), EVFILT_PROC, EV_ADD | EV_ONESHOT,
           NOTE_EXIT, 0, nullptr);
    return ::kevent(queue_.get(), &exit, 1, nullptr, 0, nullptr) == 0;
  }

  bool receive(struct kevent& event, Clock::time_point deadline) {
    if (deadline == Clock::time_point::max()) {
      return ::kevent(queue_.get(), nullptr, 0, &event, 1, nullptr) > 0;
    }
    const auto left = std::max(deadline - Clock::now(), Clock::duration::zero());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
    const timespec timeout{static_cast<time_t>(seconds.count()),
                           static_cast<long>(std::chrono::nanoseconds(left - seconds).count())};
    return ::kevent(queue_.get(), nullptr, 0, &event, 1, &timeout) > 0;
  }

  const std::string bundleID_;
  const Descriptor queue_;
  bool isKnown_ = false;
  bool isPresent_ = false;
};

}  // namespace

std::unique_ptr<PeerWatch> makeNativePeerWatch(const std::string& bundleID) {
  Descriptor queue(::kqueue());
  struct kevent waking {};
  EV_SET(&waking, wakeEvent, EVFILT_USER, EV_ADD | EV_CLEAR, 0, 0, nullptr);
  if (!queue || ::kevent(queue.get(), &waking, 1, nullptr, 0, nullptr) != 0) return nullptr;
  return std::make_unique<ProcessWatch>(bundleID, std::move(queue));
}

}  // namespace qbdkr
