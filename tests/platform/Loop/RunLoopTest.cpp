#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include <ClientComm/RunLoop.h>

namespace qbdkr {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds shortInterval(5);

bool isReadable(int descriptor, milliseconds patience) {
  pollfd state{descriptor, POLLIN, 0};
  return poll(&state, 1, static_cast<int>(patience.count())) == 1;
}

// Runs a body on a thread of its own, whose loop no other code uses.
void onNewThread(const std::function<void()>& body) { std::thread(body).join(); }

TEST(RunLoopTest, CurrentIsOneLoopPerThreadAndTheMainOneOnTheMainThread) {
  EXPECT_EQ(&RunLoop::current(), &RunLoop::main());
  RunLoop* other = nullptr;
  onNewThread([&] {
    other = &RunLoop::current();
    EXPECT_EQ(&RunLoop::current(), other);
    EXPECT_NE(&RunLoop::main(), other);
  });
  EXPECT_EQ(&RunLoop::current(), &RunLoop::main());
}

TEST(RunLoopTest, MainIsTheSameFromEveryThread) {
  RunLoop* seen = nullptr;
  onNewThread([&] { seen = &RunLoop::main(); });
  EXPECT_EQ(seen, &RunLoop::main());
}

TEST(RunLoopTest, TasksOfOneThreadRunInTheirOrderOnTheThreadOfTheLoop) {
  RunLoop& loop = RunLoop::main();
  std::vector<int> order;
  bool onOwnThread = true;
  const auto self = std::this_thread::get_id();
  std::thread other([&] {
    for (int i = 0; i < 1000; ++i) {
      loop.perform([&, i] {
        order.push_back(i);
        onOwnThread = onOwnThread && std::this_thread::get_id() == self;
      });
    }
    loop.perform([&] { loop.stop(); });
  });
  loop.run();
  other.join();
  ASSERT_EQ(order.size(), 1000U);
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
  EXPECT_TRUE(onOwnThread);
}

TEST(RunLoopTest, TasksOfSeveralThreadsAllRunEachThreadsInOrder) {
  RunLoop& loop = RunLoop::main();
  constexpr int threads = 4;
  constexpr int tasks = 500;
  std::vector<int> next(threads, 0);
  bool inOrder = true;
  int done = 0;
  std::vector<std::thread> running;
  for (int thread = 0; thread < threads; ++thread) {
    running.emplace_back([&, thread] {
      for (int i = 0; i < tasks; ++i) {
        loop.perform([&, thread, i] {
          inOrder = inOrder && next[static_cast<std::size_t>(thread)]++ == i;
          if (++done == threads * tasks) loop.stop();
        });
      }
    });
  }
  loop.run();
  for (std::thread& thread : running) thread.join();
  EXPECT_TRUE(inOrder);
  EXPECT_EQ(done, threads * tasks);
}

TEST(RunLoopTest, ATaskIsNotRunByTheCallOfPerform) {
  bool ran = false;
  RunLoop::main().perform([&] { ran = true; });
  EXPECT_FALSE(ran);
  RunLoop::main().perform([] { RunLoop::main().stop(); });
  RunLoop::main().run();
  EXPECT_TRUE(ran);
}

TEST(RunLoopTest, ATaskGivenByATaskRunsAfterTheOnesBefore) {
  std::vector<int> order;
  RunLoop& loop = RunLoop::main();
  loop.perform([&] {
    order.push_back(1);
    loop.perform([&] {
      order.push_back(3);
      loop.stop();
    });
  });
  loop.perform([&] { order.push_back(2); });
  loop.run();
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(RunLoopTest, StopBeforeRunEndsItAtOnceAndOnlyOnce) {
  RunLoop& loop = RunLoop::main();
  loop.stop();
  loop.run();
  bool ran = false;
  loop.perform([&] {
    ran = true;
    loop.stop();
  });
  loop.run();
  EXPECT_TRUE(ran);
}

TEST(RunLoopTest, StopFromAnotherThreadEndsRun) {
  RunLoop& loop = RunLoop::main();
  std::promise<void> running;
  loop.perform([&] { running.set_value(); });
  std::thread other([&] {
    running.get_future().wait();
    loop.stop();
  });
  loop.run();
  other.join();
}

TEST(RunLoopTest, StopFromASignalHandlerEndsRun) {
  struct sigaction action {};
  action.sa_handler = [](int) { RunLoop::main().stop(); };
  struct sigaction before {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
  RunLoop& loop = RunLoop::main();
  std::promise<void> running;
  loop.perform([&] { running.set_value(); });
  std::thread other([&, self = pthread_self()] {
    running.get_future().wait();
    pthread_kill(self, SIGUSR1);
  });
  loop.run();
  other.join();
  sigaction(SIGUSR1, &before, nullptr);
}

TEST(RunLoopTest, ASignalWithoutStopDoesNotEndRun) {
  static std::atomic<int> signals;
  signals = 0;
  struct sigaction action {};
  action.sa_handler = [](int) { ++signals; };
  struct sigaction before {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
  RunLoop& loop = RunLoop::main();
  std::promise<void> running;
  bool performed = false;
  loop.perform([&] { running.set_value(); });
  std::thread other([&, self = pthread_self()] {
    running.get_future().wait();
    pthread_kill(self, SIGUSR1);
    while (signals == 0) std::this_thread::yield();
    loop.perform([&] {
      performed = true;
      loop.stop();
    });
  });
  loop.run();
  other.join();
  EXPECT_TRUE(performed);
  sigaction(SIGUSR1, &before, nullptr);
}

TEST(RunLoopTest, AnExceptionOfATaskIsDropped) {
  RunLoop& loop = RunLoop::main();
  bool later = false;
  loop.perform([] { throw std::runtime_error("dropped"); });
  loop.perform([] { throw 42; });
  loop.perform([&] {
    later = true;
    loop.stop();
  });
  EXPECT_NO_THROW(loop.run());
  EXPECT_TRUE(later);
}

// A copy might throw where no caller expects it.
TEST(RunLoopTest, TasksAreNotCopied) {
  struct CountsCopies {
    explicit CountsCopies(int& counter) : copies(&counter) {}
    CountsCopies(const CountsCopies& other) : copies(other.copies) { ++*copies; }
    CountsCopies(CountsCopies&& other) noexcept = default;
    CountsCopies& operator=(const CountsCopies&) = delete;
    CountsCopies& operator=(CountsCopies&&) = delete;
    ~CountsCopies() = default;
    int* copies;
  };
  RunLoop& loop = RunLoop::main();
  int copies = 0;
  int calls = 0;
  for (int i = 0; i < 3; ++i) {
    loop.perform([counts = CountsCopies(copies), &calls] { ++calls; });
  }
  loop.perform([&] { loop.stop(); });
  loop.run();
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(copies, 0);
}

TEST(RunLoopTest, ATimerRepeatsAndFirstFiresAfterOneInterval) {
  RunLoop& loop = RunLoop::main();
  int ticks = 0;
  Clock::time_point first;
  const auto start = Clock::now();
  const auto timer = loop.scheduleTimer(milliseconds(20), [&](const RunLoopTimer&) {
    if (++ticks == 1) first = Clock::now();
    if (ticks == 3) loop.stop();
  });
  loop.run();
  timer->invalidate();
  EXPECT_EQ(ticks, 3);
  EXPECT_GE(first - start, milliseconds(20));
  EXPECT_GE(Clock::now() - start, milliseconds(60));
}

TEST(RunLoopTest, ATimerGivesItselfToItsTask) {
  RunLoop& loop = RunLoop::main();
  const RunLoopTimer* given = nullptr;
  const auto timer = loop.scheduleTimer(shortInterval, [&](const RunLoopTimer& self) {
    given = &self;
    loop.stop();
  });
  loop.run();
  timer->invalidate();
  EXPECT_EQ(given, timer.get());
}

TEST(RunLoopTest, TheLoopKeepsATimerThatNobodyHolds) {
  RunLoop& loop = RunLoop::main();
  int ticks = 0;
  loop.scheduleTimer(shortInterval, [&](const RunLoopTimer& self) {
    if (++ticks < 3) return;
    const_cast<RunLoopTimer&>(self).invalidate();
    loop.stop();
  });
  loop.run();
  EXPECT_EQ(ticks, 3);
}

TEST(RunLoopTest, AnExceptionOfATimerIsDroppedAndItTicksOn) {
  RunLoop& loop = RunLoop::main();
  int ticks = 0;
  const auto timer = loop.scheduleTimer(shortInterval, [&](const RunLoopTimer&) {
    if (++ticks == 3) loop.stop();
    throw std::runtime_error("dropped");
  });
  EXPECT_NO_THROW(loop.run());
  timer->invalidate();
  EXPECT_EQ(ticks, 3);
}

// Runs the loop for that many ticks of another timer.
void runForTicks(int count) {
  RunLoop& loop = RunLoop::current();
  int ticks = 0;
  const auto timer = loop.scheduleTimer(shortInterval, [&](const RunLoopTimer&) {
    if (++ticks == count) loop.stop();
  });
  loop.run();
  timer->invalidate();
}

TEST(RunLoopTest, ATimerInvalidatedInItsOwnTaskTicksNoMore) {
  int ticks = 0;
  std::shared_ptr<RunLoopTimer> timer;
  timer = RunLoop::main().scheduleTimer(shortInterval, [&](const RunLoopTimer&) {
    ++ticks;
    timer->invalidate();
  });
  runForTicks(5);
  EXPECT_EQ(ticks, 1);
  timer->invalidate();  // a second time is harmless
}

TEST(RunLoopTest, ATimerMayBeReleasedInItsOwnTask) {
  int ticks = 0;
  std::shared_ptr<RunLoopTimer> timer;
  timer = RunLoop::main().scheduleTimer(shortInterval, [&](const RunLoopTimer&) {
    ++ticks;
    timer->invalidate();
    timer.reset();
  });
  runForTicks(5);
  EXPECT_EQ(ticks, 1);
}

TEST(RunLoopTest, ATimerInvalidatedBeforeItsFirstTickNeverTicks) {
  int ticks = 0;
  const auto timer =
      RunLoop::main().scheduleTimer(shortInterval, [&](const RunLoopTimer&) { ++ticks; });
  timer->invalidate();
  runForTicks(3);
  EXPECT_EQ(ticks, 0);
}

TEST(RunLoopTest, ATimerInvalidatedOnAnotherThreadTicksNoMore) {
  int ticks = 0;
  std::shared_ptr<RunLoopTimer> timer;
  timer = RunLoop::main().scheduleTimer(shortInterval, [&](const RunLoopTimer&) {
    ++ticks;
    onNewThread([&] { timer->invalidate(); });
  });
  runForTicks(5);
  EXPECT_EQ(ticks, 1);
}

TEST(RunLoopTest, ATimerInvalidatedWhenItIsAlreadyDueDoesNotTick) {
  RunLoop& loop = RunLoop::main();
  int ticks = 0;
  std::shared_ptr<RunLoopTimer> one;
  std::shared_ptr<RunLoopTimer> other;
  one = loop.scheduleTimer(shortInterval, [&](const RunLoopTimer&) {
    ++ticks;
    other->invalidate();
    one->invalidate();
  });
  other = loop.scheduleTimer(shortInterval, [&](const RunLoopTimer&) {
    ++ticks;
    one->invalidate();
    other->invalidate();
  });
  const auto bothDue = Clock::now() + 4 * shortInterval;
  while (Clock::now() < bothDue) std::this_thread::yield();
  runForTicks(3);
  EXPECT_EQ(ticks, 1);
}

TEST(RunLoopTest, InvalidateRacingWithTicksIsHarmless) {
  for (int round = 0; round < 50; ++round) {
    RunLoop& loop = RunLoop::main();
    std::atomic<bool> ticked{false};
    const auto timer =
        loop.scheduleTimer(milliseconds(1), [&](const RunLoopTimer&) { ticked = true; });
    std::thread other([&] {
      while (!ticked) std::this_thread::yield();
      timer->invalidate();
      loop.perform([&] { loop.stop(); });
    });
    loop.run();
    other.join();
  }
}

TEST(RunLoopTest, MissedTicksAreNotMadeUpFor) {
  constexpr milliseconds interval(10);
  constexpr milliseconds busy(100);
  constexpr int enough = 12;
  RunLoop& loop = RunLoop::main();
  int ticks = 0;
  const auto start = Clock::now();
  const auto timer = loop.scheduleTimer(interval, [&](const RunLoopTimer&) {
    if (++ticks == 1) {
      const auto end = Clock::now() + busy;
      while (Clock::now() < end) std::this_thread::yield();
    }
    if (ticks == enough) loop.stop();
  });
  loop.run();
  timer->invalidate();
  // One tick, the busy time, one late tick, then one tick per interval.
  EXPECT_GE(Clock::now() - start, interval + busy + (enough - 3) * interval);
}

TEST(RunLoopTest, ATimerFiresOnlyWhileTheLoopRuns) {
  onNewThread([] {
    int ticks = 0;
    RunLoop& loop = RunLoop::current();
    const auto timer = loop.scheduleTimer(milliseconds(1), [&](const RunLoopTimer&) { ++ticks; });
    EXPECT_TRUE(isReadable(loop.descriptor(), milliseconds(20'000)));  // the timer is due
    EXPECT_EQ(ticks, 0);
    timer->invalidate();
  });
}

TEST(RunLoopTest, EmbeddedLoopIsQuietWhenNothingIsDue) {
  onNewThread([] {
    RunLoop& loop = RunLoop::current();
    loop.dispatch();
    EXPECT_FALSE(isReadable(loop.descriptor(), milliseconds(0)));
  });
}

TEST(RunLoopTest, EmbeddedLoopWakesForATaskOfAnotherThread) {
  onNewThread([] {
    RunLoop& loop = RunLoop::current();
    loop.dispatch();
    bool ran = false;
    std::thread other([&] { loop.perform([&] { ran = true; }); });
    EXPECT_TRUE(isReadable(loop.descriptor(), milliseconds(20'000)));
    loop.dispatch();
    EXPECT_TRUE(ran);
    other.join();
    EXPECT_FALSE(isReadable(loop.descriptor(), milliseconds(0)));
  });
}

TEST(RunLoopTest, EmbeddedLoopDispatchesAllTasksThatAreDue) {
  onNewThread([] {
    RunLoop& loop = RunLoop::current();
    std::vector<int> order;
    for (int i = 0; i < 3; ++i) loop.perform([&, i] { order.push_back(i); });
    loop.perform([&] { loop.perform([&] { order.push_back(3); }); });
    EXPECT_TRUE(isReadable(loop.descriptor(), milliseconds(20'000)));
    loop.dispatch();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3}));
  });
}

// Acts as a foreign loop: waits for the descriptor and dispatches, until the condition holds.
template <class Condition>
bool runEmbedded(RunLoop& loop, Condition condition) {
  const auto deadline = Clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (Clock::now() >= deadline) return false;
    if (!isReadable(loop.descriptor(), milliseconds(20'000))) return false;
    loop.dispatch();
  }
  return true;
}

TEST(RunLoopTest, EmbeddedLoopWakesForATimerAddedAfterTheLastDispatch) {
  onNewThread([] {
    RunLoop& loop = RunLoop::current();
    loop.dispatch();
    int ticks = 0;
    const auto timer = loop.scheduleTimer(shortInterval, [&](const RunLoopTimer&) { ++ticks; });
    EXPECT_TRUE(runEmbedded(loop, [&] { return ticks >= 3; }));
    timer->invalidate();
  });
}

TEST(RunLoopTest, EmbeddedLoopWakesForATimerAddedByATask) {
  onNewThread([] {
    RunLoop& loop = RunLoop::current();
    loop.dispatch();
    int ticks = 0;
    std::shared_ptr<RunLoopTimer> timer;
    std::thread other([&] {
      loop.perform([&] {
        timer = loop.scheduleTimer(shortInterval, [&](const RunLoopTimer&) { ++ticks; });
      });
    });
    EXPECT_TRUE(runEmbedded(loop, [&] { return ticks >= 2; }));
    other.join();
    timer->invalidate();
  });
}

TEST(RunLoopTest, EmbeddedLoopWakesForATimerAddedByATimer) {
  onNewThread([] {
    RunLoop& loop = RunLoop::current();
    int ticks = 0;
    std::shared_ptr<RunLoopTimer> inner;
    const auto outer = loop.scheduleTimer(shortInterval, [&](const RunLoopTimer& self) {
      inner = loop.scheduleTimer(shortInterval, [&](const RunLoopTimer&) { ++ticks; });
      const_cast<RunLoopTimer&>(self).invalidate();
    });
    EXPECT_TRUE(runEmbedded(loop, [&] { return ticks >= 2; }));
    inner->invalidate();
  });
}

TEST(RunLoopTest, DispatchDoesNotBlock) {
  onNewThread([] {
    RunLoop& loop = RunLoop::current();
    const auto timer = loop.scheduleTimer(std::chrono::hours(1), [](const RunLoopTimer&) {});
    loop.dispatch();  // the timer is an hour away
    timer->invalidate();
    loop.dispatch();
  });
}

// Ways in which a callee runs the loop that called it, until the condition holds.
void runNested(RunLoop& loop, const std::function<bool()>& condition) {
  const auto ends = loop.scheduleTimer(milliseconds(2), [&](const RunLoopTimer&) {
    if (condition()) loop.stop();
  });
  loop.run();
  ends->invalidate();
}

void dispatchNested(RunLoop& loop, const std::function<bool()>& condition) {
  EXPECT_TRUE(runEmbedded(loop, condition));
}

using Nesting = void (*)(RunLoop& loop, const std::function<bool()>& condition);

// Nests each way in each way of running the loop.
using Ways = std::pair<Nesting, Nesting>;

class NestedRunLoop : public testing::TestWithParam<Ways> {
 protected:
  // Runs the loop until the body, which a task calls, has returned.
  static void onLoop(const std::function<void(RunLoop&)>& body) {
    onNewThread([&] {
      RunLoop& loop = RunLoop::current();
      bool done = false;
      loop.perform([&] {
        body(loop);
        done = true;
      });
      GetParam().first(loop, [&] { return done; });
    });
  }

  static void nest(RunLoop& loop, const std::function<bool()>& condition) {
    GetParam().second(loop, condition);
  }
};

INSTANTIATE_TEST_SUITE_P(Each, NestedRunLoop,
                         testing::Values(Ways(runNested, runNested),
                                         Ways(runNested, dispatchNested),
                                         Ways(dispatchNested, runNested),
                                         Ways(dispatchNested, dispatchNested)));

TEST_P(NestedRunLoop, PerformsTasksOfOtherThreadsAndTicks) {
  onLoop([](RunLoop& loop) {
    bool performed = false;
    std::thread other([&] { loop.perform([&] { performed = true; }); });
    int ticks = 0;
    const auto timer = loop.scheduleTimer(shortInterval, [&](const RunLoopTimer&) { ++ticks; });
    nest(loop, [&] { return performed && ticks >= 3; });
    timer->invalidate();
    other.join();
    EXPECT_TRUE(performed);
  });
}

TEST_P(NestedRunLoop, PerformsTheTasksThatWereGivenBeforeInTheirOrder) {
  onLoop([](RunLoop& loop) {
    std::vector<int> order;
    bool isNested = false;
    loop.perform([&] {
      order.push_back(1);
      isNested = true;
      nest(loop, [&] { return order.size() >= 3; });
      isNested = false;
    });
    for (int i = 2; i <= 3; ++i) {
      loop.perform([&, i] {
        EXPECT_TRUE(isNested);
        order.push_back(i);
      });
    }
    nest(loop, [&] { return order.size() >= 3 && !isNested; });
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
  });
}

TEST_P(NestedRunLoop, TicksInsideATick) {
  onLoop([](RunLoop& loop) {
    int ticks = 0;
    bool done = false;
    // Both are due at the same time, and sd-event takes note of both before the first is called.
    const auto count = [&](const RunLoopTimer&) {
      if (++ticks > 1) return;
      const auto bothDue = Clock::now() + 4 * shortInterval;
      while (Clock::now() < bothDue) std::this_thread::yield();
      nest(loop, [&] { return ticks >= 6; });
      done = true;
    };
    const auto one = loop.scheduleTimer(shortInterval, count);
    const auto other = loop.scheduleTimer(shortInterval, count);
    const auto bothDue = Clock::now() + 4 * shortInterval;
    while (Clock::now() < bothDue) std::this_thread::yield();
    nest(loop, [&] { return done; });
    one->invalidate();
    other->invalidate();
    EXPECT_GE(ticks, 6);
  });
}

// The system takes note of timers that are due at the same time all at once.
TEST(RunLoopTest, EmbeddedLoopInsideATickWakesForAnotherTimerThatWasDueWithIt) {
  onNewThread([] {
    constexpr milliseconds interval(2000);
    RunLoop& loop = RunLoop::current();
    int ticks = 0;
    Clock::duration waited{};
    const auto count = [&](const RunLoopTimer&) {
      if (++ticks > 1) return;
      const auto start = Clock::now();
      EXPECT_TRUE(runEmbedded(loop, [&] { return ticks >= 2; }));
      waited = Clock::now() - start;
    };
    const auto one = loop.scheduleTimer(interval, count);
    const auto other = loop.scheduleTimer(interval, count);
    EXPECT_TRUE(runEmbedded(loop, [&] { return ticks >= 2; }));
    EXPECT_LT(waited, interval - milliseconds(500)) << "it came with its next tick";
    one->invalidate();
    other->invalidate();
  });
}

TEST_P(NestedRunLoop, SleepsWhileNothingIsDue) {
  onLoop([](RunLoop& loop) {
    const auto cpuTime = [] {
      timespec time{};
      clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
      return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    bool done = false;
    const auto end =
        loop.scheduleTimer(std::chrono::seconds(1), [&](const RunLoopTimer&) { done = true; });
    const auto before = cpuTime();
    nest(loop, [&] { return done; });
    EXPECT_LT(cpuTime() - before, milliseconds(200));
    end->invalidate();
  });
}

TEST(RunLoopTest, StopEndsTheInnermostRun) {
  RunLoop& loop = RunLoop::main();
  std::vector<int> order;
  loop.perform([&] {
    loop.perform([&] {
      order.push_back(1);
      loop.stop();
    });
    loop.run();
    order.push_back(2);
    loop.perform([&] {
      order.push_back(3);
      loop.stop();
    });
  });
  loop.run();
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(RunLoopTest, ATimerOutlivesTheLoopOfAFinishedThread) {
  std::shared_ptr<RunLoopTimer> timer;
  int ticks = 0;
  onNewThread([&] {
    timer = RunLoop::current().scheduleTimer(shortInterval, [&](const RunLoopTimer&) { ++ticks; });
    runForTicks(3);
  });
  const int before = ticks;
  EXPECT_GE(before, 1);
  timer->invalidate();
  timer->invalidate();
  EXPECT_EQ(ticks, before);
  timer.reset();
}

TEST(RunLoopTest, ATimerThatIsNeverInvalidatedEndsWithItsThread) {
  std::shared_ptr<RunLoopTimer> timer;
  onNewThread(
      [&] { timer = RunLoop::current().scheduleTimer(shortInterval, [](const RunLoopTimer&) {}); });
  timer.reset();
}

TEST(RunLoopTest, AnInvalidationThatTheLoopNeverSawIsHarmless) {
  std::promise<std::shared_ptr<RunLoopTimer>> made;
  std::promise<void> invalidated;
  std::thread owner([&] {
    made.set_value(RunLoop::current().scheduleTimer(shortInterval, [](const RunLoopTimer&) {}));
    invalidated.get_future().wait();  // the loop never runs again
  });
  auto timer = made.get_future().get();
  timer->invalidate();
  invalidated.set_value();
  owner.join();
  timer.reset();
}

TEST(RunLoopTest, TasksThatNeverRanAreDestroyedWithTheLoop) {
  const auto kept = std::make_shared<int>(1);
  onNewThread([&] { RunLoop::current().perform([kept] {}); });
  EXPECT_EQ(kept.use_count(), 1);
}

}  // namespace
}  // namespace qbdkr
