#include "Platform/Base/DetachedThread.h"

#include <pthread.h>

#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "Platform/Base/BlockedSignals.h"
#include "Platform/Base/DropExceptions.h"

namespace qbdkr {
namespace {

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
  pthread_attr_t attributes;
  if (!owned || pthread_attr_init(&attributes) != 0) {
    errno = ENOMEM;
    return false;
  }
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  const auto blocked = BlockedSignals::allButFaults();
  pthread_t thread{};
  const int error = pthread_create(&thread, &attributes, runBody, owned.get());
  if (error == 0) static_cast<void>(owned.release());  // the thread owns it
  pthread_attr_destroy(&attributes);
  if (error != 0) errno = error;
  return error == 0;
}

}  // namespace qbdkr
