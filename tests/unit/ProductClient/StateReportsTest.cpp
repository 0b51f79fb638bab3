#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <ClientComm/RunLoop.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

#include "CommunicatorTest.h"
#include "support/Environment.h"

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;
using States = std::vector<HelperState>;
using Dictionary = PropertyList::Dictionary;

class StateReportsTest : public CommunicatorTest {
 protected:
  StateReportsTest() {
    reachedProcess = [this] {
      ++looks;
      return reached;
    };
  }

  static fs::path installed(const Host& host) { return host.home / "Library/Example/Helper.app"; }
  static void writeHelper(const fs::path& bundle, const char* version) {
    writeBundle(bundle,
                Dictionary{{"CFBundleIdentifier", helperIdentifier}, {"CFBundleVersion", version}});
  }

  void record() {
    communicator().setHelperStateHandler(
        [this](const HelperState& state) { told.push_back(state); });
  }
  // Runs the start-up with a recording handler, and drops what it tells.
  void startUp() {
    record();
    threads.runAll();
    deliver();
  }
  States deliver() {
    RunLoop::main().dispatch();
    return std::exchange(told, {});
  }

  std::optional<pid_t> reached = getpid();
  int looks = 0;
  States told;
};

TEST_F(StateReportsTest, WithoutAHandlerNothingIsFoundOut) {
  withHost(informationWithHelper(), [&](const Host& host) {
    writeHelper(host.resources() / "Helper.app", "1.0");
    communicator();
    threads.runAll();
    EXPECT_EQ(communicator().restartHelperInThread(), noErr);
    transport.answerWith({procNotFound, std::nullopt});
    EXPECT_EQ(communicator().restartHelperInThread(), noErr);
    workspace.answer = [](const std::string&) { return false; };
    EXPECT_EQ(communicator().restartHelperInThread(), 1);
    communicator().extractHelper();
    EXPECT_EQ(looks, 0);
    EXPECT_EQ(deliver(), States());
  });
}

TEST_F(StateReportsTest, StartUpTellsTheInstallationTheLaunchAndTheProcess) {
  withHost(informationWithHelper(), [&](const Host& host) {
    writeHelper(host.resources() / "Helper.app", "1.0");
    record();
    EXPECT_EQ(threads.count(), 1U) << "the start-up tells by itself";
    threads.runAll();
    const States all = deliver();
    ASSERT_EQ(all.size(), 3U);
    EXPECT_TRUE(std::holds_alternative<HelperInstalling>(all[0]));
    EXPECT_EQ(all[1], HelperState(HelperLaunching()));
    EXPECT_EQ(all[2], HelperState(HelperRunning{"1.0", getpid()}));
  });
}

TEST_F(StateReportsTest, HandlerThatComesLaterGetsTheStateThatIsFoundOut) {
  withHost(informationWithHelper(), [&](const Host& host) {
    writeHelper(installed(host), "1.0");
    communicator();
    threads.runAll();
    record();
    EXPECT_EQ(deliver(), States());
    threads.runAll();
    EXPECT_EQ(deliver(), (States{HelperRunning{"1.0", getpid()}}));
  });
}

TEST_F(StateReportsTest, HandlerThatComesLaterIsToldOfAHelperThatIsNotThere) {
  withHost(informationWithHelper(), [&](const Host& host) {
    writeHelper(installed(host), "1.0");
    communicator();
    threads.runAll();
    reached.reset();
    record();
    threads.runAll();
    EXPECT_EQ(deliver(), States{HelperLost()});
  });
}

TEST_F(StateReportsTest, HandlerThatComesLaterIsToldOfAClosedServer) {
  withHost(informationWithHelper(), [&](const Host& host) {
    communicator();
    threads.runAll();
    host.writeDefaults(helperIdentifier, Dictionary{{"QBHPServerClosed", true}});
    record();
    threads.runAll();
    EXPECT_EQ(deliver(), States{HelperClosed()});
    EXPECT_EQ(looks, 0);
  });
}

TEST_F(StateReportsTest, ChecksLookForTheProcessAgainOnlyWhenItHasEnded) {
  withHost(informationWithHelper(), [&](const Host& host) {
    writeHelper(installed(host), "1.0");
    startUp();
    const int before = looks;
    EXPECT_EQ(communicator().isAliveHelper(), noErr);
    EXPECT_EQ(communicator().restartHelperInThread(), noErr);
    EXPECT_EQ(looks, before);
    EXPECT_EQ(deliver(), States());
  });
}

TEST_F(StateReportsTest, CheckThatFindsAnotherProcessTellsIt) {
  withHost(informationWithHelper(), [&](const Host& host) {
    writeHelper(installed(host), "1.0");
    auto first = std::make_unique<RunningDaemon>("first");
    reached = first->processID();
    startUp();
    first.reset();
    reached = getpid();
    EXPECT_EQ(communicator().isAliveHelper(), noErr);
    EXPECT_EQ(deliver(), (States{HelperRunning{"1.0", getpid()}}));
  });
}

TEST_F(StateReportsTest, CheckThatReachesNothingTellsTheLoss) {
  withHost(informationWithHelper(), [&](const Host& host) {
    writeHelper(installed(host), "1.0");
    startUp();
    transport.answerWith({connectionInvalid, std::nullopt});
    EXPECT_EQ(communicator().isAliveHelper(), connectionInvalid);
    EXPECT_EQ(deliver(), States());
    transport.answerWith({procNotFound, std::nullopt});
    EXPECT_EQ(communicator().isAliveHelper(), procNotFound);
    EXPECT_EQ(deliver(), States{HelperLost()});
  });
}

TEST_F(StateReportsTest, LaunchThatFailsIsALoss) {
  withHost(informationWithHelper(), [&](const Host& host) {
    writeHelper(installed(host), "1.0");
    startUp();
    transport.answerWith({procNotFound, std::nullopt});
    workspace.answer = [](const std::string&) { return false; };
    reached.reset();
    EXPECT_EQ(communicator().restartHelperInThread(), 1);
    EXPECT_EQ(deliver(), (States{HelperLost(), HelperLaunching(), HelperLost()}));
  });
}

TEST_F(StateReportsTest, LaunchedHelperThatCannotBeReachedIsLaunching) {
  withHost(informationWithHelper(), [&](const Host& host) {
    writeHelper(installed(host), "1.0");
    reached.reset();
    record();
    threads.runAll();
    EXPECT_EQ(deliver(), States{HelperLaunching()});
  });
}

TEST_F(StateReportsTest, HelperThatRunsAndCannotBeReachedIsLaunching) {
  const std::string identifier = "com.Example.Helper.P" + std::to_string(getpid());
  Dictionary info = informationWithHelper();
  info.set("Helper Bundle indentifiter", identifier);  // no other test's
  withHost(info, [&](const Host& host) {
    const RunningApplication helper(installed(host),
                                    Dictionary{{"CFBundleIdentifier", identifier}});
    reached.reset();
    workspace.startsProcesses = false;
    record();
    threads.runAll();
    EXPECT_EQ(deliver(), States{HelperLaunching()});
  });
}

TEST_F(StateReportsTest, CheckOfAClosedServerTellsThat) {
  withHost(informationWithHelper(), [&](const Host& host) {
    writeHelper(installed(host), "1.0");
    startUp();
    host.writeDefaults(helperIdentifier, Dictionary{{"QBHPServerClosed", true}});
    EXPECT_EQ(communicator().restartHelperInThread(), QBHPHelperCommunicate::serverNotOpen);
    EXPECT_EQ(deliver(), States{HelperClosed()});
  });
}

TEST_F(StateReportsTest, CheckThatBeganEarlierDoesNotReopenAClosedServer) {
  withHost(informationWithHelper(), [&](const Host& host) {
    writeHelper(installed(host), "1.0");
    startUp();
    transport.answer("isAlive:prodeuctVersion:", [&](const RecordingTransport::Sent&) {
      host.writeDefaults(helperIdentifier, Dictionary{{"QBHPServerClosed", true}});
      EXPECT_EQ(communicator().restartHelperInThread(), QBHPHelperCommunicate::serverNotOpen);
      return RPCTransport::Answer{};
    });
    EXPECT_EQ(communicator().restartHelperInThread(), noErr);
    EXPECT_EQ(deliver(), States{HelperClosed()});
  });
}

TEST_F(StateReportsTest, InstallationWithoutALaunchEndsInTheStateThatIsFoundOut) {
  withHost(informationWithHelper(), [&](const Host& host) {
    startUp();
    writeHelper(host.resources() / "Helper.app", "1.0");
    reached.reset();
    communicator().extractHelper();
    const States all = deliver();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_TRUE(std::holds_alternative<HelperInstalling>(all[0]));
    EXPECT_EQ(all[1], HelperState(HelperLost()));
  });
}

TEST_F(StateReportsTest, UpgradeTellsReplacedOnceTheCopiesAreExchanged) {
  withHost(informationWithHelper(), [&](const Host& host) {
    writeHelper(installed(host), "1.0");
    startUp();
    writeHelper(host.resources() / "Helper.app", "1.1");
    communicator().extractHelper();
    const States all = deliver();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_TRUE(std::holds_alternative<HelperInstalling>(all[0]));
    EXPECT_EQ(all[1], HelperState(HelperReplaced()));
  });
}

}  // namespace
}  // namespace qbdkr::test
