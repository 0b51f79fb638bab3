#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <variant>
#include <vector>

#include <ClientComm/RunLoop.h>

#include "ProductClient/HelperStates.h"
#include "ProductClient/InstallationProgress.h"
#include "support/Environment.h"

namespace qbdkr::test {
namespace {

using std::chrono::milliseconds;
using States = std::vector<HelperState>;
using Clock = InstallationProgress::Clock;

HelperState running(pid_t processID) { return HelperRunning{"1.0", processID}; }

class HelperStatesTest : public testing::Test {
 protected:
  void record() {
    states->setHandler([this](const HelperState& state) { told.push_back(state); });
  }
  // Lets the main run loop do what is due, and returns what was told since the last call.
  States deliver() {
    RunLoop::main().dispatch();
    return std::exchange(told, {});
  }

  const std::shared_ptr<HelperStates> states = std::make_shared<HelperStates>();
  States told;
};

TEST_F(HelperStatesTest, HandlerGetsTheLatestStateAndThenEachChangeInOrder) {
  EXPECT_FALSE(states->areWanted());
  states->tell(HelperLost());
  states->tell(HelperLaunching());
  record();
  EXPECT_TRUE(states->areWanted());
  EXPECT_EQ(told, States()) << "called only on the main run loop";
  states->tell(running(7));
  states->tell(HelperLost());
  EXPECT_EQ(deliver(), (States{HelperLaunching(), running(7), HelperLost()}));
  EXPECT_EQ(deliver(), States());
}

TEST_F(HelperStatesTest, StateThatEqualsTheLastIsNotTold) {
  record();
  states->tell(running(7));
  states->tell(running(7));
  EXPECT_EQ(deliver(), States{running(7)});
  states->tell(running(7));
  EXPECT_EQ(deliver(), States());
  states->tell(running(8));
  EXPECT_EQ(deliver(), States{running(8)});
}

TEST_F(HelperStatesTest, StatesOfAnyThreadComeOnTheMainThread) {
  std::vector<std::thread::id> threads;
  states->setHandler([&](const HelperState&) { threads.push_back(std::this_thread::get_id()); });
  std::thread([this] { states->tell(HelperLaunching()); }).join();
  EXPECT_TRUE(threads.empty());
  deliver();
  EXPECT_EQ(threads, std::vector{std::this_thread::get_id()});
}

TEST_F(HelperStatesTest, HandlerMayTakeItselfOff) {
  states->setHandler([this](const HelperState& state) {
    states->setHandler(nullptr);
    told.push_back(state);
  });
  states->tell(HelperLaunching());
  states->tell(running(7));
  EXPECT_EQ(deliver(), States{HelperLaunching()});
  EXPECT_FALSE(states->areWanted());
}

TEST_F(HelperStatesTest, HandlerMaySetAnotherWhichGetsTheLatestState) {
  states->setHandler([this](const HelperState&) { record(); });
  states->tell(HelperLost());
  states->tell(HelperLaunching());
  states->tell(running(7));
  EXPECT_EQ(deliver(), States{running(7)});
}

TEST_F(HelperStatesTest, HandlerMayRunTheLoopAndGetsTheNextStatesInside) {
  int depth = 0;
  std::vector<std::pair<int, HelperState>> order;
  states->setHandler([&](const HelperState& state) {
    order.emplace_back(++depth, state);
    if (depth == 1) RunLoop::main().dispatch();
    --depth;
  });
  states->tell(HelperLaunching());
  states->tell(running(7));
  deliver();
  EXPECT_EQ(order,
            (std::vector<std::pair<int, HelperState>>{{1, HelperLaunching()}, {2, running(7)}}));
}

TEST_F(HelperStatesTest, HandlerThatThrowsGetsTheNextState) {
  int calls = 0;
  states->setHandler([&](const HelperState&) {
    ++calls;
    throw std::runtime_error("of the host");
  });
  states->tell(HelperLaunching());
  states->tell(running(7));
  deliver();
  EXPECT_EQ(calls, 2);
}

TEST_F(HelperStatesTest, HandlerThatIsReplacedIsDestroyedWithoutALock) {
  const auto release = [this](const int* number) {
    static_cast<void>(states->moment());
    delete number;
  };
  states->setHandler([kept = std::shared_ptr<int>(new int, release)](const HelperState&) {});
  states->setHandler(nullptr);
}

TEST_F(HelperStatesTest, BusyMainLoopGetsTheLatestStates) {
  record();
  for (pid_t process = 1; process <= 1000; ++process) states->tell(running(process));
  States latest;
  for (pid_t process = 1001 - int{HelperStates::mostWaiting}; process <= 1000; ++process) {
    latest.push_back(running(process));
  }
  EXPECT_EQ(deliver(), latest);
  states->tell(HelperLost());
  EXPECT_EQ(deliver(), States{HelperLost()});
}

TEST_F(HelperStatesTest, ProgressThatWaitsIsReplacedByTheNext) {
  record();
  states->tell(HelperLost());
  for (unsigned bytes = 0; bytes <= 1000; ++bytes) states->tell(HelperInstalling{bytes, 1000});
  states->tell(HelperReplaced());
  EXPECT_EQ(deliver(), (States{HelperLost(), HelperInstalling{1000, 1000}, HelperReplaced()}));
}

TEST_F(HelperStatesTest, DuringAnInstallationOnlyItsProgressAndItsEndAreTold) {
  record();
  states->beginInstallation();
  states->tell(HelperInstalling{1, 2});
  states->tell(running(7));
  states->tellLoss();
  states->tell(HelperClosed());
  states->tell(HelperReplaced());
  states->endInstallation();
  states->tell(HelperLaunching());
  EXPECT_EQ(deliver(), (States{HelperInstalling{1, 2}, HelperReplaced(), HelperLaunching()}));
}

TEST_F(HelperStatesTest, OnlyAHelperThatRanIsLost) {
  record();
  for (const HelperState& state :
       States{HelperLaunching(), HelperPaused{Clock::now()}, HelperReplaced(), HelperClosed()}) {
    states->tell(state);
    states->tellLoss();
    states->tellLossUnlessOutdated(states->moment());
    EXPECT_EQ(deliver(), States{state});
  }
  states->tell(running(7));
  states->tellLoss();
  EXPECT_EQ(deliver(), (States{running(7), HelperLost()}));
}

TEST_F(HelperStatesTest, LossIsToldIfTheStateIsUnknown) {
  record();
  states->tellLoss();
  EXPECT_EQ(deliver(), States{HelperLost()});
}

TEST_F(HelperStatesTest, OutdatedStateIsNotTold) {
  record();
  const auto before = states->moment();
  states->tellLoss();
  states->tellUnlessOutdated(before, running(7));
  EXPECT_EQ(deliver(), States{HelperLost()});
  const auto later = states->moment();
  states->tell(running(8));
  states->tellLossUnlessOutdated(later);
  EXPECT_EQ(deliver(), States{running(8)});
  states->tellUnlessOutdated(states->moment(), running(9));
  EXPECT_EQ(deliver(), States{running(9)});
}

TEST_F(HelperStatesTest, StateThatIsToldTwiceOutdatesNothing) {
  record();
  states->tell(HelperLaunching());
  const auto before = states->moment();
  states->tell(HelperLaunching());
  states->tellUnlessOutdated(before, running(7));
  EXPECT_EQ(deliver(), (States{HelperLaunching(), running(7)}));
}

// The loss comes between the look at the process and its report, though it is not told itself.
TEST_F(HelperStatesTest, LossDuringALaunchMakesTheProcessOutdated) {
  record();
  states->tell(HelperLaunching());
  const auto before = states->moment();
  states->tellLoss();
  states->tellUnlessOutdated(before, running(7));
  EXPECT_EQ(deliver(), States{HelperLaunching()});
}

TEST_F(HelperStatesTest, HandlerIsToldWhetherTheStateIsUnknown) {
  const auto set = [this] { return states->setHandler([](const HelperState&) {}); };
  EXPECT_TRUE(set());
  states->tell(running(7));
  EXPECT_FALSE(set()) << "found out for the handler before";
  EXPECT_FALSE(states->setHandler(nullptr));
  EXPECT_TRUE(set()) << "may have ended since";
  states->setHandler(nullptr);
  states->tell(HelperLaunching());
  EXPECT_FALSE(set());
  states->forget();
  EXPECT_TRUE(set());
}

TEST_F(HelperStatesTest, NothingIsToldAfterTheirEnd) {
  auto mortal = std::make_shared<HelperStates>();
  mortal->setHandler([this](const HelperState& state) { told.push_back(state); });
  mortal->tell(HelperLost());
  mortal.reset();
  EXPECT_EQ(deliver(), States());
}

TEST_F(HelperStatesTest, ManyThreadsLeaveTheLastStateAsTheLastOneTold) {
  record();
  std::atomic<int> left{4};
  std::vector<std::thread> threads;
  for (pid_t thread = 1; thread <= 4; ++thread) {
    threads.emplace_back([this, thread, &left] {
      for (pid_t i = 0; i < 1000; ++i) states->tell(running(thread * 1000 + i));
      --left;
    });
  }
  while (left > 0) RunLoop::main().dispatch();
  for (auto& thread : threads) thread.join();
  const States all = deliver();
  ASSERT_FALSE(all.empty());
  EXPECT_EQ(all.back(), states->latest());
}

// --- The progress of an installation

class InstallationProgressTest : public HelperStatesTest {
 protected:
  InstallationProgressTest() { writeFile(directory.path() / "from/file", std::string(1000, 'x')); }

  std::unique_ptr<InstallationProgress> begin() {
    return std::make_unique<InstallationProgress>(*states, directory.path() / "from",
                                                  [this] { return now; });
  }

  TemporaryDirectory directory;
  Clock::time_point now = Clock::now();
};

TEST_F(InstallationProgressTest, IsToldAtMostEvery50MillisecondsAndAtTheEnd) {
  record();
  const auto progress = begin();
  EXPECT_EQ(deliver(), (States{HelperInstalling{0, 1000}}));
  now += milliseconds(49);
  progress->add(100);
  EXPECT_EQ(deliver(), States());
  now += milliseconds(1);
  progress->add(200);
  progress->add(300);
  EXPECT_EQ(deliver(), (States{HelperInstalling{300, 1000}}));
  progress->add(400);
  progress->complete();
  EXPECT_EQ(deliver(), (States{HelperInstalling{1000, 1000}}));
}

TEST_F(InstallationProgressTest, SizeIsNotFoundOutUntilThereIsAHandler) {
  const auto progress = begin();
  progress->add(100);
  EXPECT_EQ(states->latest(), HelperState(HelperInstalling{0, 0}));
  now += milliseconds(50);
  progress->add(100);
  EXPECT_EQ(states->latest(), HelperState(HelperInstalling{0, 0}));
  record();
  EXPECT_EQ(deliver(), (States{HelperInstalling{0, 0}}));
  progress->add(100);
  EXPECT_EQ(deliver(), (States{HelperInstalling{300, 1000}}));
}

TEST_F(InstallationProgressTest, EndLetsOtherStatesBeTold) {
  record();
  begin();
  states->tell(HelperLaunching());
  EXPECT_EQ(deliver(), (States{HelperInstalling{0, 1000}, HelperLaunching()}));
}

}  // namespace
}  // namespace qbdkr::test
