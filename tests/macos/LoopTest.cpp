// The run loop of macOS over doubles of the system's: a run loop that learns of a descriptor on
// another thread, and so one pass late.

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <ClientComm/AppleEvent.h>
#include <ClientComm/RunLoop.h>

#include "Platform/Events/NativeTransport.h"
#include "Platform/Events/RPCTransport.h"
#include "Platform/Loop/NativeLoop.h"
#include "macos/doubles/AppleEventManager.h"
#include "macos/doubles/AutoreleasePools.h"

namespace qbdkr {
namespace {

using doubles::AEDescriptor;
using doubles::AppleEventManager;

bool isReadable(int descriptor) {
  pollfd readable{descriptor, POLLIN, 0};
  return ::poll(&readable, 1, 0) > 0;
}

TEST(MacOSLoopTest, DispatchPerformsATaskThatATaskHasAdded) {
  RunLoop& loop = RunLoop::main();
  std::vector<int> order;
  loop.perform([&] {
    order.push_back(0);
    loop.perform([&] {
      order.push_back(1);
      loop.perform([&] { order.push_back(2); });
    });
  });
  loop.dispatch();
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2}));
  loop.dispatch();  // the system's watch of the pipe comes late
  EXPECT_FALSE(isReadable(loop.descriptor()));
}

TEST(MacOSLoopTest, TasksThatKeepComingLeaveTurnsToATimer) {
  RunLoop& loop = RunLoop::main();
  bool hasFired = false;
  const auto timer = loop.scheduleTimer(std::chrono::milliseconds(1), [&](const RunLoopTimer&) {
    hasFired = true;
    loop.stop();
  });
  int tasks = 0;
  std::function<void()> again = [&] {
    if (++tasks < 1'000'000 && !hasFired) loop.perform(again);
  };
  loop.perform(again);
  loop.run();
  loop.dispatch();  // takes the last one
  EXPECT_LT(tasks, 1'000'000);
  timer->invalidate();
}

TEST(MacOSLoopTest, TurnThatPerformsTasksDoesNotWaitAsWell) {
  NativeLoop& native = mainNativeLoop();
  std::promise<void> end;
  auto wake = std::async(std::launch::async, [&, ended = end.get_future()] {
    const bool isLate = ended.wait_for(std::chrono::seconds(5)) == std::future_status::timeout;
    if (isLate) native.wake();
    return isLate;
  });
  RunLoop::main().perform([] {});
  EXPECT_EQ(native.turn(true), NativeLoop::Turn::done);
  end.set_value();
  EXPECT_FALSE(wake.get());
}

TEST(MacOSLoopTest, RunWakesForATaskOfAnotherThread) {
  RunLoop& loop = RunLoop::main();
  std::thread other([&] { loop.perform([&] { loop.stop(); }); });
  loop.run();
  other.join();
}

TEST(MacOSLoopTest, DescriptorLetsEventsComeBeforeTheFirstTurn) {
  std::vector<std::string> methods;
  nativeTransport().setHandler([&](const RPCEvent& event, const auto&) {
    methods.push_back(event.methodName.value_or(""));
    return std::optional<std::string>();
  });
  const int descriptor = RunLoop::main().descriptor();
  EXPECT_FALSE(isReadable(descriptor));
  auto call = AEDescriptor::event(kAECall);
  call.parameters[::keyDirectObject] =
      AEDescriptor::list({AEDescriptor::text(u"Class"), AEDescriptor::text(u"report")});
  AppleEventManager::deliver(call);
  ASSERT_TRUE(isReadable(descriptor));
  for (int turns = 0; turns < 10 && methods.empty(); ++turns) RunLoop::main().dispatch();
  EXPECT_EQ(methods, std::vector<std::string>{"report"});
}

TEST(MacOSLoopTest, DescriptorAskedForOnAnotherThreadLeavesThePortToTheMainThread) {
  int descriptor = -1;
  std::thread([&] { descriptor = RunLoop::main().descriptor(); }).join();
  AppleEventManager::deliver(AEDescriptor::event(kAECall));
  EXPECT_FALSE(isReadable(descriptor));
  EXPECT_EQ(RunLoop::main().descriptor(), descriptor);
  EXPECT_TRUE(isReadable(descriptor));
}

TEST(MacOSLoopTest, EachTurnHasAnAutoreleasePool) {
  RunLoop& loop = RunLoop::main();
  int open = 0;
  loop.perform([&] { open = doubles::openPools(); });
  loop.dispatch();
  EXPECT_EQ(open, 1);
  EXPECT_EQ(doubles::openPools(), 0);
  const int before = doubles::poolsSoFar();
  loop.perform([&] { loop.stop(); });
  loop.run();
  EXPECT_GT(doubles::poolsSoFar(), before);
  EXPECT_EQ(doubles::openPools(), 0);
}

}  // namespace
}  // namespace qbdkr
