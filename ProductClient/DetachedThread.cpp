#include "ProductClient/DetachedThread.h"

#include <pthread.h>
#include <signal.h>

#include <memory>
#include <new>
#include <utility>

#include "Platform/Base/DropExceptions.h"

namespace qbdkr {
namespace {

// Blocks signals while a thread is made. The thread inherits that: the host's handlers do not run
// on it.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t all;
    sigfillset(&all);
    // The host's crash handler still gets faults.
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) {
      sigdelset(&all, fault);
    }
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

using Body = std::function<void()>;

// Drops exceptions: a failed check must not end the host, and the next tick checks again.
void* runBody(void* body) {
  const std::unique_ptr<Body> owned(static_cast<Body*>(body));
  dropExceptions(*owned);
  return nullptr;
}

}  // namespace

// Creates the thread detached. Detaching it afterwards, while it ends, crashes in the C library
// (seen with glibc 2.36), which still reads memory that the thread has freed.
bool detachNewThread(std::function<void()> body) {
  std::unique_ptr<Body> owned(new (std::nothrow) Body(std::move(body)));
  if (!owned) return false;
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  const BlockedSignals blocked;
  pthread_t thread{};
  const bool made = pthread_create(&thread, &attributes, runBody, owned.get()) == 0;
  if (made) static_cast<void>(owned.release());  // the thread owns it
  pthread_attr_destroy(&attributes);
  return made;
}

}  // namespace qbdkr
