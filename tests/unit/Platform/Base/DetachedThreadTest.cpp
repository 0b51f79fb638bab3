// The host survives a thread of the framework that fails, gets a signal, or cannot be made.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <future>
#include <initializer_list>
#include <new>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Host.h"
#include "Platform/Base/DetachedThread.h"
#include "support/Patience.h"

namespace {
std::atomic<int> detachings{0};
thread_local bool hasMemory = true;
}  // namespace

// Replaces the function of the C++ library.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (!hasMemory) return nullptr;
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

// Wraps the function of the C library.
extern "C" int pthread_detach(pthread_t thread) noexcept {
  ++detachings;
  static const auto original =
      reinterpret_cast<int (*)(pthread_t)>(dlsym(RTLD_NEXT, "pthread_detach"));
  return original(thread);
}

namespace qbdkr::test {
namespace {

using Signals = std::set<int>;

// Returns the signals that can be blocked, without those that the C library reserves.
Signals blockableSignals() {
  Signals signals;
  for (int number = 1; number <= SIGRTMAX; ++number) {
    if (number == SIGKILL || number == SIGSTOP || (number >= 32 && number < SIGRTMIN)) continue;
    signals.insert(number);
  }
  return signals;
}

const Signals faults{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS};

Signals blockedSignals() {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  Signals blocked;
  for (const int number : blockableSignals()) {
    if (sigismember(&mask, number) == 1) blocked.insert(number);
  }
  return blocked;
}

void block(const Signals& signals) {
  sigset_t mask;
  sigemptyset(&mask);
  for (const int number : signals) sigaddset(&mask, number);
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

Signals blockedOnADetachedThread() {
  std::promise<Signals> blocked;
  EXPECT_TRUE(detachNewThread([&] { blocked.set_value(blockedSignals()); }));
  return blocked.get_future().get();
}

// Keeps the process from making threads: it runs as an ordinary user who has reached the limit of
// processes.
class NoMoreThreads {
 public:
  NoMoreThreads() {
    EXPECT_TRUE(!isRoot_ || setresuid(ordinaryUser, ordinaryUser, 0) == 0);
    EXPECT_EQ(getrlimit(RLIMIT_NPROC, &before_), 0);
    const rlimit none{0, before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NPROC, &none), 0);
  }
  NoMoreThreads(const NoMoreThreads&) = delete;
  NoMoreThreads& operator=(const NoMoreThreads&) = delete;
  ~NoMoreThreads() {
    EXPECT_EQ(setrlimit(RLIMIT_NPROC, &before_), 0);
    EXPECT_TRUE(!isRoot_ || setresuid(0, 0, 0) == 0);
  }

 private:
  static constexpr uid_t ordinaryUser = 65534;

  const bool isRoot_ = geteuid() == 0;
  rlimit before_{};
};

// Tells when the thread that set it has ended normally.
struct ThreadEnd {
  std::promise<void>* reached = nullptr;
  ~ThreadEnd() {
    if (reached != nullptr) reached->set_value();
  }
};
thread_local ThreadEnd threadEnd;

// Detaching a thread while it ends crashes in the C library.
TEST(DetachedThread, IsMadeDetachedAndNotDetachedLater) {
  const int before = detachings;
  std::promise<int> state;
  EXPECT_TRUE(detachNewThread([&] {
    pthread_attr_t attributes;
    int found = PTHREAD_CREATE_JOINABLE;
    if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
      pthread_attr_getdetachstate(&attributes, &found);
      pthread_attr_destroy(&attributes);
    }
    state.set_value(found);
  }));
  EXPECT_EQ(state.get_future().get(), PTHREAD_CREATE_DETACHED);
  EXPECT_EQ(detachings, before);
}

TEST(DetachedThread, ThreadsThatEndAtOnceEndNothingElse) {
  std::atomic<int> ran{0};
  constexpr int makers = 16;
  constexpr int each = 200;
  std::vector<std::thread> running;
  for (int i = 0; i < makers; ++i) {
    running.emplace_back([&] {
      for (int k = 0; k < each; ++k) {
        while (!detachNewThread([&] { ++ran; })) std::this_thread::yield();
      }
    });
  }
  for (std::thread& maker : running) maker.join();
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (ran < makers * each && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
  }
  EXPECT_EQ(ran, makers * each);
}

TEST(DetachedThread, RunsTheBodyOnAnotherThread) {
  std::promise<pid_t> thread;
  EXPECT_TRUE(detachNewThread([&] { thread.set_value(gettid()); }));
  EXPECT_NE(thread.get_future().get(), gettid());
}

TEST(DetachedThread, ABodyThatThrowsEndsNothingButItself) {
  const std::initializer_list<void (*)()> throwers{[] { throw std::runtime_error("raised"); },
                                                   [] { throw 42; }};
  for (const auto raise : throwers) {
    std::promise<void> ended;
    EXPECT_TRUE(detachNewThread([&ended, raise] {
      threadEnd.reached = &ended;
      raise();
    }));
    EXPECT_EQ(ended.get_future().wait_for(patience), std::future_status::ready);
  }
}

TEST(DetachedThread, AllSignalsButFaultsAreBlockedOnIt) {
  Signals expected = blockableSignals();
  for (const int fault : faults) expected.erase(fault);
  const Signals before = blockedSignals();
  EXPECT_EQ(blockedOnADetachedThread(), expected);
  block({SIGUSR2, SIGSEGV});
  EXPECT_EQ(blockedOnADetachedThread(), expected);
  block(before);
}

TEST(DetachedThread, TheSignalsOfItsMakerStayAsTheyAre) {
  const Signals before = blockedSignals();
  block({SIGUSR2});
  blockedOnADetachedThread();
  EXPECT_EQ(blockedSignals(), Signals{SIGUSR2});
  block(before);
}

TEST(DetachedThread, AThreadThatCannotBeMadeIsToldAndHarmsNothing) {
  inHost(hostInformation(), [](const Host&) {
    std::atomic<bool> ran{false};
    const Signals before = blockedSignals();
    {
      const NoMoreThreads limit;
      errno = 0;
      EXPECT_FALSE(detachNewThread([&] { ran = true; }));
      EXPECT_EQ(errno, EAGAIN);
    }
    EXPECT_EQ(blockedSignals(), before);
    EXPECT_FALSE(ran);
    EXPECT_FALSE(blockedOnADetachedThread().empty());  // threads can be made again
  });
}

TEST(DetachedThread, WithoutMemoryNoThreadCanBeMade) {
  std::atomic<bool> ran{false};
  hasMemory = false;
  errno = 0;
  const bool made = detachNewThread([&] { ran = true; });
  const int error = errno;
  hasMemory = true;
  EXPECT_FALSE(made);
  EXPECT_EQ(error, ENOMEM);
  EXPECT_FALSE(ran);
}

}  // namespace
}  // namespace qbdkr::test
