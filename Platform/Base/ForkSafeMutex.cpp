#include "Platform/Base/ForkSafeMutex.h"

#include <pthread.h>

#include <algorithm>
#include <vector>

#include "Platform/Base/NeverDestroyed.h"

namespace qbdkr {
namespace {

// Holds all mutexes of this kind in the process, and locks them around fork().
class ForkGuard {
 public:
  ForkGuard() {
    pthread_atfork([] { shared().lockAll(); }, [] { shared().unlockAll(); },
                   [] { shared().unlockAll(); });
  }

  static ForkGuard& shared() {
    static NeverDestroyed guard([] { return ForkGuard(); });
    return *guard;
  }

  void add(ForkSafeMutex& mutex) {
    const std::lock_guard lock(mutex_);
    guarded_.push_back(&mutex);
  }

  void remove(ForkSafeMutex& mutex) {
    const std::lock_guard lock(mutex_);
    std::erase(guarded_, &mutex);
  }

 private:
  void lockAll() {
    mutex_.lock();
    for (ForkSafeMutex* mutex : guarded_) mutex->lock();
  }

  void unlockAll() {
    for (ForkSafeMutex* mutex : guarded_) mutex->unlock();
    mutex_.unlock();
  }

  std::mutex mutex_;
  std::vector<ForkSafeMutex*> guarded_;
};

}  // namespace

ForkSafeMutex::ForkSafeMutex() { ForkGuard::shared().add(*this); }

ForkSafeMutex::~ForkSafeMutex() { ForkGuard::shared().remove(*this); }

}  // namespace qbdkr
