// Run loops, with sources of descriptors and ports. A descriptor is watched by another thread of
// the system, so a pass serves only what was seen readable by the end of the pass before, or during
// its own wait.

#include <poll.h>
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>
#include <vector>

#include "macos/doubles/CFObject.h"
#include "macos/doubles/Mach.h"

namespace {

CFStringRef mode(std::size_t number) { return reinterpret_cast<CFStringRef>(number); }

}  // namespace

const CFRunLoopMode kCFRunLoopDefaultMode = mode(1);
const CFRunLoopMode kCFRunLoopCommonModes = mode(2);

struct __CFRunLoopSource : doubles::CFObject {
  int watched = -1;
  std::function<bool()> isWatched;
  std::function<void()> perform;
  bool isValid = true;
  bool isReported = false;
};

struct __CFRunLoopTimer : doubles::CFObject {
  CFAbsoluteTime next = 0;
  CFTimeInterval interval = 0;
  std::function<void()> fire;
  bool isValid = true;
};

struct __CFFileDescriptor : doubles::CFObject {
  int descriptor = -1;
  CFFileDescriptorCallBack callBack = nullptr;
  void* info = nullptr;
  bool isEnabled = false;
};

struct __CFMachPort : doubles::CFObject {
  mach_port_t port = MACH_PORT_NULL;
  CFMachPortCallBack callBack = nullptr;
};

struct __CFRunLoop : doubles::CFObject {
  CFRunLoopRunResult run(CFTimeInterval seconds) {
    fireTimers();
    if (performReported()) return kCFRunLoopRunHandledSource;
    const auto end = CFAbsoluteTimeGetCurrent() + seconds;
    while (seconds > 0 && CFAbsoluteTimeGetCurrent() < end) {
      report(std::min(end, nextFire(end)) - CFAbsoluteTimeGetCurrent());
      fireTimers();
      if (performReported()) return kCFRunLoopRunHandledSource;
    }
    report(0);
    return static_cast<CFRunLoopRunResult>(3);  // timed out
  }

  CFAbsoluteTime nextFire(CFAbsoluteTime without) const {
    for (const auto* timer : timers) {
      if (timer->isValid) without = std::min(without, timer->next);
    }
    return without;
  }

  std::vector<__CFRunLoopSource*> sources;
  std::vector<__CFRunLoopTimer*> timers;

 private:
  void fireTimers() {
    const auto now = CFAbsoluteTimeGetCurrent();
    for (auto* timer : std::vector(timers)) {
      if (!timer->isValid || timer->next > now) continue;
      timer->next = now + timer->interval;
      timer->fire();
    }
  }

  bool performReported() {
    for (auto* source : std::vector(sources)) {
      if (!source->isValid || !std::exchange(source->isReported, false)) continue;
      source->perform();
      return true;
    }
    return false;
  }

  void report(CFTimeInterval patience) {
    std::vector<pollfd> watched;
    for (auto* source : sources) {
      const bool counts = source->isValid && source->isWatched();
      watched.push_back({counts ? source->watched : -1, POLLIN, 0});
    }
    ::poll(watched.data(), watched.size(),
           static_cast<int>(std::max(patience, 0.0) * 1000) + (patience > 0));
    for (std::size_t i = 0; i < watched.size(); ++i) {
      sources[i]->isReported = sources[i]->isReported || watched[i].revents != 0;
    }
  }
};

CFAbsoluteTime CFAbsoluteTimeGetCurrent(void) {
  using Seconds = std::chrono::duration<double>;
  return Seconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

CFRunLoopRef CFRunLoopGetMain(void) {
  static __CFRunLoop loop;
  return &loop;
}

CFRunLoopRef CFRunLoopGetCurrent(void) {
  thread_local __CFRunLoop loop;
  return pthread_main_np() != 0 ? CFRunLoopGetMain() : &loop;
}

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode, CFTimeInterval seconds, Boolean) {
  return CFRunLoopGetCurrent()->run(seconds);
}

void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode) {
  source->retain();
  loop->sources.push_back(source);
}

void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source) { source->isValid = false; }

void CFRunLoopAddTimer(CFRunLoopRef loop, CFRunLoopTimerRef timer, CFRunLoopMode) {
  timer->retain();
  loop->timers.push_back(timer);
}

CFAbsoluteTime CFRunLoopGetNextTimerFireDate(CFRunLoopRef loop, CFRunLoopMode) {
  constexpr CFAbsoluteTime never = 1e300;
  const auto next = loop->nextFire(never);
  return next == never ? 0 : next;
}

CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef, CFAbsoluteTime fireDate,
                                       CFTimeInterval interval, CFOptionFlags, CFIndex,
                                       CFRunLoopTimerCallBack callout,
                                       CFRunLoopTimerContext* context) {
  auto* timer = new __CFRunLoopTimer;
  timer->next = fireDate;
  timer->interval = interval;
  timer->fire = [timer, callout, info = context->info] { callout(timer, info); };
  return timer;
}

void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer) { timer->isValid = false; }

void CFRunLoopTimerSetTolerance(CFRunLoopTimerRef, CFTimeInterval) {}

CFFileDescriptorRef CFFileDescriptorCreate(CFAllocatorRef, CFFileDescriptorNativeDescriptor fd,
                                           Boolean, CFFileDescriptorCallBack callout,
                                           const CFFileDescriptorContext* context) {
  auto* file = new __CFFileDescriptor;
  file->descriptor = fd;
  file->callBack = callout;
  file->info = context->info;
  return file;
}

void CFFileDescriptorEnableCallBacks(CFFileDescriptorRef file, CFOptionFlags) {
  file->isEnabled = true;
}

void CFFileDescriptorInvalidate(CFFileDescriptorRef file) { file->isEnabled = false; }

CFRunLoopSourceRef CFFileDescriptorCreateRunLoopSource(CFAllocatorRef, CFFileDescriptorRef file,
                                                       CFIndex) {
  auto* source = new __CFRunLoopSource;
  source->watched = file->descriptor;
  source->isWatched = [file] { return file->isEnabled; };
  source->perform = [file] {
    file->isEnabled = false;
    file->callBack(file, kCFFileDescriptorReadCallBack, file->info);
  };
  return source;
}

CFMachPortRef CFMachPortCreateWithPort(CFAllocatorRef, mach_port_t portNum,
                                       CFMachPortCallBack callout, CFMachPortContext*, Boolean*) {
  auto* port = new __CFMachPort;
  port->port = portNum;
  port->callBack = callout;
  return port;
}

CFRunLoopSourceRef CFMachPortCreateRunLoopSource(CFAllocatorRef, CFMachPortRef port, CFIndex) {
  port->retain();  // lives as long as the process
  auto* source = new __CFRunLoopSource;
  source->watched = doubles::descriptorOfPort(port->port);
  source->isWatched = [] { return true; };
  source->perform = [port] {
    if (void* message = doubles::takeMessage(port->port)) {
      port->callBack(port, message, 0, nullptr);
    }
  };
  return source;
}
