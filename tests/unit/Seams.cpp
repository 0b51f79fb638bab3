#include "Seams.h"

#include <atomic>
#include <stdexcept>
#include <utility>

namespace qbdkr::test {
namespace {

std::atomic<RecordingRunLoop*> runLoop{nullptr};
std::atomic<RecordingWorkspace*> workspace{nullptr};
std::atomic<HeldThreads*> threads{nullptr};

}  // namespace

RecordingRunLoop::RecordingRunLoop() { runLoop = this; }
RecordingRunLoop::~RecordingRunLoop() { runLoop = nullptr; }

std::shared_ptr<RunLoopTimer> RecordingRunLoop::scheduleTimer(std::chrono::milliseconds interval,
                                                              TimerTask task) {
  timers_.push_back(std::make_shared<Timer>(interval, std::move(task)));
  return timers_.back();
}

RecordingWorkspace::RecordingWorkspace() { workspace = this; }
RecordingWorkspace::~RecordingWorkspace() { workspace = nullptr; }

bool RecordingWorkspace::open(const std::string& path) {
  {
    const std::lock_guard lock(mutex_);
    opened_.push_back(path);
  }
  return answer(path);
}

std::vector<std::string> RecordingWorkspace::opened() const {
  const std::lock_guard lock(mutex_);
  return opened_;
}

HeldThreads::HeldThreads() { threads = this; }
HeldThreads::~HeldThreads() { threads = nullptr; }

bool HeldThreads::hold(std::function<void()> body) {
  const std::lock_guard lock(mutex_);
  bodies_.push_back(std::move(body));
  return true;
}

std::size_t HeldThreads::count() const {
  const std::lock_guard lock(mutex_);
  return bodies_.size();
}

void HeldThreads::runNext() {
  std::function<void()> body;
  {
    const std::lock_guard lock(mutex_);
    if (bodies_.empty()) throw std::logic_error("no thread was detached");
    body = std::move(bodies_.front());
    bodies_.erase(bodies_.begin());
  }
  body();
}

}  // namespace qbdkr::test

extern "C" {

// A reference is a pointer to the linker.
qbdkr::RunLoop* __real__ZN5qbdkr7RunLoop7currentEv();
qbdkr::RunLoop* __wrap__ZN5qbdkr7RunLoop7currentEv();
qbdkr::RunLoop* __wrap__ZN5qbdkr7RunLoop7currentEv() {
  if (auto* runLoop = qbdkr::test::runLoop.load()) return runLoop;
  return __real__ZN5qbdkr7RunLoop7currentEv();
}

bool __real__ZN5qbdkr8openFileERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE(
    const std::string& path);
bool __wrap__ZN5qbdkr8openFileERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE(
    const std::string& path);
bool __wrap__ZN5qbdkr8openFileERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE(
    const std::string& path) {
  if (auto* workspace = qbdkr::test::workspace.load()) return workspace->open(path);
  return __real__ZN5qbdkr8openFileERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE(path);
}

bool __real__ZN5qbdkr15detachNewThreadESt8functionIFvvEE(std::function<void()> body);
bool __wrap__ZN5qbdkr15detachNewThreadESt8functionIFvvEE(std::function<void()> body);
bool __wrap__ZN5qbdkr15detachNewThreadESt8functionIFvvEE(std::function<void()> body) {
  if (auto* threads = qbdkr::test::threads.load()) return threads->hold(std::move(body));
  return __real__ZN5qbdkr15detachNewThreadESt8functionIFvvEE(std::move(body));
}

}  // extern "C"
