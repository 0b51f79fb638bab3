#include <CoreFoundation/CoreFoundation.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/event.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include "Platform/Base/AutoreleasePoolMacOS.h"
#include "Platform/Base/CoreFoundationRefMacOS.h"
#include "Platform/Base/Descriptor.h"
#include "Platform/Loop/EventPortMacOS.h"
#include "Platform/Loop/NativeLoop.h"

namespace qbdkr {
namespace {

using Seconds = std::chrono::duration<double>;  // as Core Foundation counts time

// Wakes the loop from other threads and from signal handlers, which may do little more than write a
// byte.
struct WakePipe {
  Descriptor in;
  Descriptor out;

  static WakePipe open() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) return {};
    WakePipe made{Descriptor(ends[0]), Descriptor(ends[1])};
    for (const int end : ends) {
      ::fcntl(end, F_SETFD, FD_CLOEXEC);
      ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
    return made;
  }

  // Tells whether it held a byte.
  [[nodiscard]] bool drain() const {
    std::array<char, 64> bytes{};
    bool held = false;
    while (::read(in.get(), bytes.data(), bytes.size()) > 0) held = true;
    return held;
  }
};

// The descriptor for a host with a loop of its own: readable if the pipe is, if a timer is due, and
// if an Apple event came.
class WatchedQueue {
 public:
  WatchedQueue() : queue_(::kqueue()) {
    if (queue_) ::fcntl(queue_.get(), F_SETFD, FD_CLOEXEC);
  }

  [[nodiscard]] int get() const { return queue_.get(); }

  bool watchDescriptor(int descriptor) {
    return change(static_cast<std::uintptr_t>(descriptor), EVFILT_READ, EV_ADD, 0, 0);
  }

  bool watchPort(mach_port_t port) { return change(port, EVFILT_MACHPORT, EV_ADD, 0, 0); }

  void wakeAfter(Seconds delay) {
    constexpr Seconds longest = std::chrono::hours(24);
    // The system may delay a timer that is due, within its tolerance. The pause keeps the host from
    // busy waiting until then.
    constexpr Seconds pause = std::chrono::milliseconds(10);
    const auto wait = std::chrono::ceil<std::chrono::microseconds>(
        delay > Seconds(0) ? std::min(delay, longest) : pause);
    change(timer, EVFILT_TIMER, EV_ADD | EV_ONESHOT, NOTE_USECONDS, wait.count());
  }

  // Takes due timers off the queue, which would stay there. Other events stay until they are
  // handled.
  void takeDue() {
    std::array<struct kevent, 4> due{};
    constexpr timespec now{};
    ::kevent(queue_.get(), nullptr, 0, due.data(), static_cast<int>(due.size()), &now);
  }

 private:
  static constexpr std::uintptr_t timer = 1;

  bool change(std::uintptr_t identifier, std::int16_t filter, std::uint16_t flags,
              std::uint32_t details, std::intptr_t data) {
    struct kevent wanted {};
    EV_SET(&wanted, identifier, filter, flags, details, data, nullptr);
    return ::kevent(queue_.get(), &wanted, 1, nullptr, 0, nullptr) == 0;
  }

  Descriptor queue_;
};

class SystemTimer final : public NativeTimer {
 public:
  using NativeTimer::NativeTimer;
  SystemTimer(const SystemTimer&) = delete;
  SystemTimer& operator=(const SystemTimer&) = delete;
  ~SystemTimer() override { end(); }

  // The system drops missed ticks, and goes on with the next one to come.
  bool schedule(CFRunLoopRef loop, Seconds interval, Seconds slack) {
    CFRunLoopTimerContext context{0, this, nullptr, nullptr, nullptr};
    timer_ = CFRef<CFRunLoopTimerRef>(
        CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + interval.count(),
                             interval.count(), 0, 0, onFire, &context));
    if (!timer_) return false;
    CFRunLoopTimerSetTolerance(timer_.get(), slack.count());
    CFRunLoopAddTimer(loop, timer_.get(), kCFRunLoopDefaultMode);
    return true;
  }

  void end() final {
    if (timer_) CFRunLoopTimerInvalidate(timer_.get());
    timer_ = {};
  }

 private:
  static void onFire(CFRunLoopTimerRef, void* self) { static_cast<SystemTimer*>(self)->tick(); }

  CFRef<CFRunLoopTimerRef> timer_;
};

// The system's own loop of a thread, shared with other users of that loop.
class SystemLoop final : public NativeLoop {
 public:
  SystemLoop(CFRunLoopRef loop, bool isMain, std::function<void()> onWake)
      : onWake_(std::move(onWake)),
        loop_(CFRef<CFRunLoopRef>::retained(loop)),
        isMain_(isMain),
        pipe_(WakePipe::open()) {
    if (!pipe_.in || !queue_.watchDescriptor(pipe_.in.get()) || !addWakeSource()) {
      throw std::runtime_error("no run loop");
    }
  }
  SystemLoop(const SystemLoop&) = delete;
  SystemLoop& operator=(const SystemLoop&) = delete;
  ~SystemLoop() override {
    CFRunLoopSourceInvalidate(source_.get());
    CFFileDescriptorInvalidate(file_.get());
  }

  void wake() override {
    // Fails only if the pipe is full, and then the loop is awake.
    [[maybe_unused]] const auto written = ::write(pipe_.out.get(), "", 1);
  }

  // Opens the event port: a host that only polls the descriptor would hear of no event before its
  // first turn.
  [[nodiscard]] int descriptor() override {
    if (isMainThread()) listen();
    return queue_.get();
  }

  // Drains the pipe itself: the system watches it on another thread, whose news may come after the
  // pass that looks for them. Then passes once more, so that tasks that keep coming leave their
  // turns to timers and events.
  Turn turn(bool waits) override {
    const AutoreleasePool pool;
    listen();
    watchNextTimer();  // a callback of this turn may wait on the descriptor
    const bool isWoken = pipe_.drain();
    if (isWoken) onWake_();
    const Turn passed = pass(waits && !isWoken);
    return isWoken && passed == Turn::nothingDue ? Turn::done : passed;
  }

  void beginTurns() override { queue_.takeDue(); }

  void endTurns() override { watchNextTimer(); }

  std::shared_ptr<NativeTimer> startTimer(std::chrono::microseconds interval,
                                          std::chrono::microseconds slack,
                                          std::function<void()> tick) override {
    auto timer = std::make_shared<SystemTimer>(std::move(tick));
    if (!timer->schedule(loop_.get(), interval, slack)) return nullptr;
    watchNextTimer();
    return timer;
  }

 private:
  bool addWakeSource() {
    CFFileDescriptorContext context{0, this, nullptr, nullptr, nullptr};
    file_ = CFRef<CFFileDescriptorRef>(
        CFFileDescriptorCreate(kCFAllocatorDefault, pipe_.in.get(), 0, onReadable, &context));
    if (!file_) return false;
    source_ = CFRef<CFRunLoopSourceRef>(
        CFFileDescriptorCreateRunLoopSource(kCFAllocatorDefault, file_.get(), 0));
    if (!source_) return false;
    CFFileDescriptorEnableCallBacks(file_.get(), kCFFileDescriptorReadCallBack);
    CFRunLoopAddSource(loop_.get(), source_.get(), kCFRunLoopCommonModes);
    return true;
  }

  Turn pass(bool waits) {
    constexpr CFTimeInterval aYear = 365.0 * 24 * 60 * 60;
    constexpr Boolean untilOneSource = 1;
    switch (CFRunLoopRunInMode(kCFRunLoopDefaultMode, waits ? aYear : 0, untilOneSource)) {
      case kCFRunLoopRunFinished:
        return Turn::failed;
      case kCFRunLoopRunHandledSource:
        return Turn::done;
      default:
        return Turn::nothingDue;
    }
  }

  // Listens from the first turn on, or from the first look at the descriptor: events may arrive
  // here only if this is the loop that runs.
  void listen() {
    if (!isMain_ || listening_) return;
    const mach_port_t port = listenForEvents();
    listening_ = port != MACH_PORT_NULL && queue_.watchPort(port);
  }

  void watchNextTimer() {
    const CFAbsoluteTime next = CFRunLoopGetNextTimerFireDate(loop_.get(), kCFRunLoopDefaultMode);
    if (next > 0) queue_.wakeAfter(Seconds(next - CFAbsoluteTimeGetCurrent()));
  }

  static void onReadable(CFFileDescriptorRef file, CFOptionFlags, void* self) {
    auto& loop = *static_cast<SystemLoop*>(self);
    [[maybe_unused]] const bool held = loop.pipe_.drain();  // a turn may have emptied it
    CFFileDescriptorEnableCallBacks(file, kCFFileDescriptorReadCallBack);  // one call each time
    loop.onWake_();
  }

  const std::function<void()> onWake_;
  const CFRef<CFRunLoopRef> loop_;
  const bool isMain_;
  bool listening_ = false;
  WakePipe pipe_;
  WatchedQueue queue_;
  CFRef<CFFileDescriptorRef> file_;
  CFRef<CFRunLoopSourceRef> source_;
};

}  // namespace

std::unique_ptr<NativeLoop> makeNativeLoop(bool ofMainThread, std::function<void()> onWake) {
  CFRunLoopRef loop = ofMainThread ? CFRunLoopGetMain() : CFRunLoopGetCurrent();
  return std::make_unique<SystemLoop>(loop, ofMainThread, std::move(onWake));
}

bool isMainThread() { return pthread_main_np() != 0; }

}  // namespace qbdkr
