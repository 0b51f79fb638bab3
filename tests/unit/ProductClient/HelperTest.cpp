#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <ClientComm/RunLoop.h>
#include <QBDKRProductClient/QBHPHelper.h>

#include "CommunicatorTest.h"
#include "support/RecordingTransport.h"
#include "support/WatchedThread.h"

namespace qbdkr::test {
namespace {

using Dictionary = PropertyList::Dictionary;

constexpr const char* isAliveRequest = "isAlive:prodeuctVersion:";

std::string localTime() {
  // time() lags behind this clock by a tick, and may still be in the previous second.
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm local{};
  localtime_r(&now, &local);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y%m%d%H%M%S", &local);
  return text.data();
}

String installTime(const Host& host) {
  const Dictionary domain = host.readDefaults(hostIdentifier);
  const PropertyList* value = domain.find("installTime");
  return value == nullptr ? std::nullopt : String(*value->string());
}

class Helper : public CommunicatorTest {
 protected:
  QBHPHelper& helper() { return facade(); }
  const RecordingRunLoop::Timer& timer() { return *runLoop.timers().at(0); }
};

TEST_F(Helper, ShareIsOneObjectOverTheSharedCommunicator) {
  inUsedHost(hostInformation(), [](const Host&) {
    auto& helper = QBHPHelper::share();
    EXPECT_EQ(&helper, &QBHPHelper::share());
    helper.setDataCollectPID("DATA");
    EXPECT_EQ(QBHPHelperCommunicate::share().collectDataPID(), "DATA");
  });
}

// The timers that a loop waits for, as the kernel tells it.
std::size_t timersOf(const RunLoop& loop) {
  std::ifstream info("/proc/self/fdinfo/" + std::to_string(loop.descriptor()));
  std::size_t timers = 0;
  for (std::string word; info >> word;) {
    if (word != "tfd:") continue;
    info >> word;
    std::error_code ignored;
    const auto target = std::filesystem::read_symlink("/proc/self/fd/" + word, ignored);
    if (target == "anon_inode:[timerfd]") ++timers;
  }
  return timers;
}

TEST_F(Helper, ShareTicksOnTheLoopOfItsThread) {
  inUsedHost(hostInformation(), [](const Host&) {
    RunLoop& main = RunLoop::main();
    std::thread([&] {
      QBHPHelper::share();
      EXPECT_EQ(timersOf(RunLoop::current()), 1U);
      EXPECT_EQ(timersOf(main), 0U);
    }).join();
  });
}

TEST_F(Helper, CreationSchedulesOneTimerOf60Seconds) {
  withUsedHost(hostInformation(), [this](const Host&) {
    helper();
    ASSERT_EQ(runLoop.timers().size(), 1U);
    EXPECT_EQ(timer().interval(), std::chrono::seconds(60));
    EXPECT_TRUE(timer().isValid());
  });
}

TEST_F(Helper, CreationMakesTheCommunicatorButStartsNothing) {
  withHost(hostInformation(), [this](const Host& host) {
    helper();
    EXPECT_EQ(threads.count(), 1U);  // the communicator's start-up thread, no check
    EXPECT_EQ(installTime(host), std::nullopt);
    EXPECT_TRUE(transport.sent().empty());
    EXPECT_TRUE(host.readDefaults(hostIdentifier).find("PID") != nullptr);
  });
}

TEST_F(Helper, FirstStartStoresTheInstallTimeAsLocalTime) {
  withHost(hostInformation(), [this](const Host& host) {
    setenv("TZ", "XYZ-13:45", 1);
    tzset();
    const std::string before = localTime();
    helper().startHelper();
    const std::string after = localTime();
    const String stored = installTime(host);
    ASSERT_TRUE(stored.has_value());
    EXPECT_EQ(stored->size(), 14U);
    EXPECT_TRUE(std::ranges::all_of(*stored, [](char c) { return c >= '0' && c <= '9'; }));
    EXPECT_LE(before, *stored);
    EXPECT_LE(*stored, after);
    unsetenv("TZ");
    tzset();
  });
}

TEST_F(Helper, LaterStartsLeaveTheInstallTimeAlone) {
  for (const char* value : {"", "20010203040506", "anything"}) {
    withHost(hostInformation(), [&](const Host& host) {
      host.writeDefaults(hostIdentifier, {{"installTime", value}});
      helper().startHelper();
      helper().startHelper();
      EXPECT_EQ(installTime(host), value);
    });
  }
}

TEST_F(Helper, InstallTimeOfAnotherTypeIsLeftAlone) {
  withHost(hostInformation(), [this](const Host& host) {
    host.writeDefaults(hostIdentifier, {{"installTime", 7}});
    helper().startHelper();
    EXPECT_EQ(*host.readDefaults(hostIdentifier).find("installTime"), PropertyList(7));
  });
}

TEST_F(Helper, OfTwoFirstStartsAtOnceTheSecondNeitherWaitsNorStoresAnything) {
  withHost(hostInformation(), [this](const Host& host) {
    helper();
    threads.runAll();
    bool isFirst = true;
    String storedMeanwhile;
    now = [&] {
      // The first start found no record, and is about to store its own.
      if (std::exchange(isFirst, false)) {
        std::thread([this] { helper().startHelper(); }).join();
        storedMeanwhile = installTime(host);
      }
      return SystemCalls().now();
    };
    helper().startHelper();
    EXPECT_EQ(storedMeanwhile, std::nullopt);
    EXPECT_TRUE(installTime(host).has_value());
  });
}

TEST_F(Helper, InstallTimeIsStoredBeforeTheCheckIsDetached) {
  withHost(hostInformation(), [this](const Host& host) {
    helper();
    threads.runAll();
    bool isStored = false;
    threads.onStart = [&] { isStored = installTime(host).has_value(); };
    helper().startHelper();
    EXPECT_EQ(threads.count(), 1U);
    EXPECT_TRUE(isStored);
    EXPECT_TRUE(transport.sent().empty());
    threads.runAll();
    EXPECT_EQ(transport.countOf(isAliveRequest), 1U);
  });
}

TEST_F(Helper, StopHelperSendsTheStopRequestAndKeepsTheTimer) {
  withUsedHost(hostInformation(), [this](const Host&) {
    helper();
    threads.runAll();
    helper().stopHelper();
    EXPECT_EQ(
        transport.sentEvents(),
        (std::vector<RPCEvent>{{"QBHPHelperControl", "stop:prodeuctVersion:", {"4711", "3.1"}}}));
    EXPECT_TRUE(timer().isValid());
  });
}

TEST_F(Helper, ATickAfterStopChecksAgainAndStartsTheHelperAgain) {
  withUsedHost(hostInformation(), [this](const Host&) {
    helper().startHelper();
    threads.runAll();
    helper().stopHelper();
    transport.reset();
    timer().fire();
    threads.runAll();
    EXPECT_EQ(transport.countOf(isAliveRequest), 1U);
    EXPECT_EQ(transport.countOf("start:prodeuctVersion:"), 1U);
  });
}

TEST_F(Helper, EveryTickChecksAndStampsTheInstallTimeIfMissing) {
  withHost(hostInformation(), [this](const Host& host) {
    helper();
    threads.runAll();
    EXPECT_EQ(installTime(host), std::nullopt);
    timer().fire();
    EXPECT_TRUE(installTime(host).has_value());
    timer().fire();
    EXPECT_EQ(threads.count(), 2U);
    threads.runAll();
    EXPECT_EQ(transport.countOf(isAliveRequest), 2U);
  });
}

TEST_F(Helper, ACallBackWithTheStoredTimerStarts) {
  withUsedHost(hostInformation(), [this](const Host&) {
    helper();
    threads.runAll();
    helper().autoautoStartIntervaTimerMethod(&timer());
    threads.runAll();
    EXPECT_EQ(transport.countOf(isAliveRequest), 1U);
  });
}

TEST_F(Helper, ACallBackWithAnyOtherArgumentDoesNothing) {
  withHost(hostInformation(), [this](const Host& host) {
    helper();
    threads.runAll();
    const RecordingRunLoop::Timer other(std::chrono::seconds(60), [](const RunLoopTimer&) {});
    helper().autoautoStartIntervaTimerMethod(&other);
    helper().autoautoStartIntervaTimerMethod(nullptr);
    EXPECT_EQ(threads.count(), 0U);
    EXPECT_EQ(installTime(host), std::nullopt);
    EXPECT_TRUE(transport.sent().empty());
  });
}

TEST_F(Helper, ASecondObjectTakesOverAndTheFirstTimerTicksWithoutEffect) {
  withUsedHost(hostInformation(), [this](const Host&) {
    helper();
    threads.runAll();
    const auto second = makeFacade();
    ASSERT_EQ(runLoop.timers().size(), 2U);
    EXPECT_EQ(threads.count(), 0U);  // it uses the same communicator
    EXPECT_TRUE(timer().isValid());
    timer().fire();
    helper().autoautoStartIntervaTimerMethod(&timer());
    EXPECT_EQ(threads.count(), 0U);
    runLoop.timers().at(1)->fire();
    EXPECT_EQ(threads.count(), 1U);
    helper().autoautoStartIntervaTimerMethod(runLoop.timers().at(1).get());
    second->autoautoStartIntervaTimerMethod(runLoop.timers().at(1).get());
    EXPECT_EQ(threads.count(), 3U);
  });
}

TEST_F(Helper, TheEndOfAnObjectEndsTheTimerInUse) {
  withUsedHost(hostInformation(), [this](const Host&) {
    helper();
    threads.runAll();
    makeFacade().reset();
    ASSERT_EQ(runLoop.timers().size(), 2U);
    EXPECT_TRUE(timer().isValid());
    EXPECT_FALSE(runLoop.timers().at(1)->isValid());
    // Neither timer is in use any more.
    timer().fire();
    runLoop.timers().at(1)->fire();
    helper().autoautoStartIntervaTimerMethod(nullptr);
    EXPECT_EQ(threads.count(), 0U);
    // Direct calls still work.
    helper().startHelper();
    EXPECT_EQ(threads.count(), 1U);
  });
}

}  // namespace
}  // namespace qbdkr::test
