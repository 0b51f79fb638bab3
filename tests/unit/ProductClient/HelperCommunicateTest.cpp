#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <ClientComm/QBHPGetDataByHelper.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

#include "CommunicatorTest.h"
#include "Platform/Events/RPCTransport.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "support/CapturedLog.h"
#include "support/RecordingTransport.h"
#include "support/Sanitizers.h"

namespace qbdkr::test {
namespace {

using Answer = RecordingTransport::Answer;
using Answerer = RecordingTransport::Answerer;
using Dictionary = PropertyList::Dictionary;
using Lines = std::vector<std::string>;
using Methods = std::vector<std::string>;

constexpr const char* start = "start:prodeuctVersion:";
constexpr const char* stop = "stop:prodeuctVersion:";
constexpr const char* isAlive = "isAlive:prodeuctVersion:";
constexpr const char* clientIDFormHelper = "clientIDFormHelper";

class HelperCommunicate : public CommunicatorTest {};

TEST_F(HelperCommunicate, ShareIsOneObject) {
  inUsedHost(hostInformation(), [](const Host&) {
    auto& communicator = QBHPHelperCommunicate::share();
    EXPECT_EQ(&communicator, &QBHPHelperCommunicate::share());
    EXPECT_EQ(QBHPHelperControl::share().helperCtrlDelegate(),
              static_cast<QBHPHelperControlCallBackDelegate*>(
                  static_cast<QBHPWillHelperExitDelegate*>(&communicator)));
  });
}

// The longest that a thread of the framework may take.
bool comesTrue(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

TEST_F(HelperCommunicate, ShareIsOfTheMainBundleAndStartsItUp) {
  auto info = informationWithHelper();
  info.set("Helper Bundle indentifiter", "com.Example.Helper.P" + std::to_string(getpid()));
  inHost(info, [](const Host& host) {
    writeBundle(host.resources() / "Helper.app", {{"CFBundleVersion", "1.0"}});
    QBHPHelperCommunicate::share();
    const Dictionary stored = host.readDefaults(hostIdentifier);
    ASSERT_NE(stored.find("PID"), nullptr);
    EXPECT_EQ(*stored.find("PID"), PropertyList("4711"));
    ASSERT_NE(stored.find("ExecutableFile"), nullptr);
    EXPECT_EQ(*stored.find("ExecutableFile"), PropertyList(host.bundle.string()));
    EXPECT_TRUE(comesTrue([&] {
      return std::filesystem::exists(host.home / "Library/Example/Helper.app/Contents/Info.plist");
    }));
  });
}

TEST_F(HelperCommunicate, ShareWithoutDescriptorsKeepsNothingAndTheNextOneSucceeds) {
  if (hasAddressSanitizer) GTEST_SKIP() << "the check of an object's type needs a pipe";
  inHost(hostInformation(), [](const Host& host) {
    RPCTransport::replaceShared(nullptr);  // the one of the system needs a run loop
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{0, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_THROW(QBHPHelperCommunicate::share(), std::runtime_error);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    QBHPHelperCommunicate::share();
    const Dictionary stored = host.readDefaults(hostIdentifier);
    ASSERT_NE(stored.find("PID"), nullptr);
    EXPECT_EQ(*stored.find("PID"), PropertyList("4711"));
  });
}

TEST_F(HelperCommunicate, CreationStartsOneThread) {
  withUsedHost(hostInformation(), [this](const Host&) {
    communicator();
    EXPECT_EQ(threads.count(), 1U);
  });
}

TEST_F(HelperCommunicate, CreationSendsNothingAndOpensNothingItself) {
  withUsedHost(informationWithHelper(), [this](const Host&) {
    CapturedLog log;
    communicator();
    EXPECT_TRUE(transport.sent().empty());
    EXPECT_TRUE(workspace.opened().empty());
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(communicator().clientID(), std::nullopt);
  });
}

TEST_F(HelperCommunicate, CreationBecomesTheDelegateAndMakesTheProcessReachable) {
  withUsedHost(hostInformation(), [this](const Host&) {
    communicator();
    EXPECT_EQ(QBHPHelperControl::share().helperCtrlDelegate(),
              static_cast<QBHPHelperControlCallBackDelegate*>(
                  static_cast<QBHPWillHelperExitDelegate*>(&communicator())));
    EXPECT_TRUE(transport.hasHandler());
  });
}

TEST_F(HelperCommunicate, CreationIsTheDelegateAndRecordsTheIdentityBeforeTheStartUpThreadBegins) {
  withHost(informationWithHelper(), [this](const Host& host) {
    bool isDelegate = false;
    bool isRecorded = false;
    threads.onStart = [&] {
      isDelegate = QBHPHelperControl::share().helperCtrlDelegate() != nullptr;
      isRecorded = host.readDefaults(hostIdentifier).find("PID") != nullptr;
    };
    communicator();
    ASSERT_EQ(threads.count(), 1U);
    EXPECT_TRUE(isDelegate);
    EXPECT_TRUE(isRecorded);
    threads.runNext();
    EXPECT_EQ(transport.sentEvents().at(0),
              (RPCEvent{"QBHPHelperControl", start, {"4711", "3.1"}}));
  });
}

// Returns the switches in the host's property list, "-" for a missing one.
std::string switchesIn(const Host& host) {
  const auto info = readDictionaryFile(host.bundle / "Contents/Info.plist").value_or(Dictionary());
  std::string text;
  for (const char* key : {"TipsEnable", "EnableAD"}) {
    const PropertyList* value = info.find(key);
    text += value == nullptr ? '-' : *value == PropertyList(true) ? '1' : '0';
  }
  return text;
}

TEST_F(HelperCommunicate, StartHelperSendsThenRecordsThenFetchesTheClientIDThenWritesTheSwitches) {
  withHost(hostInformation(), [this](const Host& host) {
    bool recordedAtStart = true;
    bool recordedAtFetch = false;
    std::string switchesAtFetch;
    const auto recorded = [&] {
      return host.readDefaults(hostIdentifier).find("FirstStartPID") != nullptr;
    };
    transport.answer(start, Answerer([&](const auto&) {
                       recordedAtStart = recorded();
                       return Answer{};
                     }));
    transport.answer(clientIDFormHelper, Answerer([&](const auto&) {
                       recordedAtFetch = recorded();
                       switchesAtFetch = switchesIn(host);
                       return Answer{noErr, "client 1"};
                     }));
    EXPECT_EQ(communicator().startHelper(), noErr);
    EXPECT_EQ(transport.sentMethods(), (Methods{start, clientIDFormHelper}));
    EXPECT_FALSE(recordedAtStart);
    EXPECT_TRUE(recordedAtFetch);
    EXPECT_EQ(switchesAtFetch, "--");
    EXPECT_EQ(switchesIn(host), "10");
    EXPECT_EQ(communicator().clientID(), "client 1");
  });
}

TEST_F(HelperCommunicate, StartHelperAddsTheTipsSwitchBeforeTheAdvertisingSwitch) {
  withUsedHost(hostInformation(), [this](const Host& host) {
    communicator().startHelper();
    // A new key is appended.
    const std::string info = readFile(host.bundle / "Contents/Info.plist");
    ASSERT_NE(info.find("EnableAD"), std::string::npos);
    EXPECT_LT(info.find("TipsEnable"), info.find("EnableAD"));
  });
}

TEST_F(HelperCommunicate, StartHelperThatFailsStillRecordsFetchesAndWritesTheSwitches) {
  withHost(hostInformation(), [this](const Host& host) {
    transport.answerWith({procNotFound, std::nullopt});
    EXPECT_EQ(communicator().startHelper(), procNotFound);
    EXPECT_EQ(transport.sentMethods(), (Methods{start, clientIDFormHelper}));
    EXPECT_NE(host.readDefaults(hostIdentifier).find("FirstStartPID"), nullptr);
    EXPECT_EQ(switchesIn(host), "10");
  });
}

TEST_F(HelperCommunicate, IsAliveOfAHelperNotStartedYetStartsItExactlyOnce) {
  withUsedHost(hostInformation(), [this](const Host&) {
    EXPECT_EQ(communicator().isAliveHelper(), noErr);
    EXPECT_EQ(transport.sentMethods(), (Methods{isAlive, start, clientIDFormHelper}));
    EXPECT_EQ(communicator().isAliveHelper(), noErr);
    EXPECT_EQ(transport.sentMethods(), (Methods{isAlive, start, clientIDFormHelper, isAlive}));
  });
}

TEST_F(HelperCommunicate, IsAliveOfAStartedHelperStartsNothing) {
  withUsedHost(hostInformation(), [this](const Host&) {
    communicator().startHelper();
    transport.reset();
    EXPECT_EQ(communicator().isAliveHelper(), noErr);
    EXPECT_EQ(transport.sentMethods(), Methods{isAlive});
  });
}

TEST_F(HelperCommunicate, IsAliveThatFailsStartsNothing) {
  withUsedHost(hostInformation(), [this](const Host&) {
    transport.answerWith({procNotFound, std::nullopt});
    EXPECT_EQ(communicator().isAliveHelper(), procNotFound);
    EXPECT_EQ(transport.sentMethods(), Methods{isAlive});
  });
}

TEST_F(HelperCommunicate, IsAliveSendsTheProductIdentity) {
  withUsedHost(hostInformation(), [this](const Host&) {
    communicator().isAliveHelper();
    EXPECT_EQ(transport.sentEvents().at(0),
              (RPCEvent{"QBHPHelperControl", isAlive, {"4711", "3.1"}}));
  });
}

TEST_F(HelperCommunicate, IsAliveLogsTheStatusAndTheFlag) {
  withUsedHost(hostInformation(), [this](const Host&) {
    communicator();
    CapturedLog log;
    transport.answer(isAlive, Answer{procNotFound, std::nullopt});
    communicator().isAliveHelper();
    EXPECT_EQ(log.lines(), Lines{"result -600 isHelperAlive 0"});
    transport.reset();
    communicator().isAliveHelper();
    communicator().isAliveHelper();
    EXPECT_EQ(log.lines(), (Lines{"result -600 isHelperAlive 0", "result 0 isHelperAlive 0",
                                  "QBDKRProductClient''QBHPHelperControl",
                                  "start:prodeuctVersion: 4711 3.1 ", "result 0 isHelperAlive 1"}));
  });
}

TEST_F(HelperCommunicate, AStartRequestThatFailsLeavesTheFlagAsItWas) {
  withUsedHost(hostInformation(), [this](const Host&) {
    transport.answer(start, Answer{connectionInvalid, std::nullopt});
    communicator().isAliveHelper();
    communicator().isAliveHelper();
    EXPECT_EQ(transport.countOf(start), 2U);  // it counts as not started
    transport.reset();
    communicator().startHelper();
    transport.answer(start, Answer{connectionInvalid, std::nullopt});
    communicator().startHelper();
    transport.reset();
    communicator().isAliveHelper();
    EXPECT_EQ(transport.countOf(start), 0U);  // it still counts as started
  });
}

TEST_F(HelperCommunicate, StopHelperSendsAndClearsTheFlag) {
  withUsedHost(hostInformation(), [this](const Host&) {
    communicator().startHelper();
    transport.reset();
    EXPECT_EQ(communicator().stopHelper(), noErr);
    EXPECT_EQ(transport.sentEvents(),
              (std::vector<RPCEvent>{{"QBHPHelperControl", stop, {"4711", "3.1"}}}));
    communicator().isAliveHelper();
    EXPECT_EQ(transport.countOf(start), 1U);
  });
}

TEST_F(HelperCommunicate, StopHelperClearsTheFlagEvenWhenItFails) {
  withUsedHost(hostInformation(), [this](const Host&) {
    communicator().startHelper();
    transport.answer(stop, Answer{connectionInvalid, std::nullopt});
    EXPECT_EQ(communicator().stopHelper(), connectionInvalid);
    transport.reset();
    communicator().isAliveHelper();
    EXPECT_EQ(transport.countOf(start), 1U);
  });
}

TEST_F(HelperCommunicate, StopHelperClearsTheFlagOnlyWhenTheRequestWasSent) {
  withUsedHost(hostInformation(), [this](const Host&) {
    communicator().startHelper();
    transport.reset();
    transport.answer(stop, Answerer([this](const auto&) {
                       communicator().isAliveHelper();  // a check during the request
                       return Answer{};
                     }));
    communicator().stopHelper();
    EXPECT_EQ(transport.sentMethods(), (Methods{stop, isAlive}));
    communicator().isAliveHelper();
    EXPECT_EQ(transport.countOf(start), 1U);
  });
}

TEST_F(HelperCommunicate, WillHelperExitStopsAndRestartsNothing) {
  withUsedHost(informationWithHelper(), [this](const Host&) {
    communicator().startHelper();
    transport.reset();
    const std::size_t before = threads.count();
    communicator().willHelperExit();
    EXPECT_EQ(transport.sentMethods(), Methods{stop});
    EXPECT_TRUE(workspace.opened().empty());
    EXPECT_EQ(threads.count(), before);
    communicator().isAliveHelper();
    EXPECT_EQ(transport.countOf(start), 1U);  // the next check starts it
  });
}

TEST_F(HelperCommunicate, ReportsReachItThroughTheDispatcher) {
  withUsedHost(hostInformation(), [this](const Host&) {
    communicator().startHelper();
    transport.reset();
    transport.deliver({"QBHPHelperControl", "helperExitNotify:", {"Helper"}});
    EXPECT_EQ(transport.sentMethods(), Methods{stop});
    transport.deliver(
        {"QBHPHelperControl", "checkServerOpenCallBack::::", {"Helper", "1", "5", "M"}});
    EXPECT_EQ(transport.sentMethods(), Methods{stop});
  });
}

TEST_F(HelperCommunicate, DidCheckServerOpenDoesNothingElse) {
  withUsedHost(hostInformation(), [this](const Host&) {
    communicator();
    CapturedLog log;
    const Error error{"domain", 5, {}};
    communicator().didCheckServerOpen(true, nullptr);
    communicator().didCheckServerOpen(false, &error);
    EXPECT_TRUE(transport.sent().empty());
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(communicator().getDefaultHelperServerOpen());
  });
}

TEST_F(HelperCommunicate, ServerIsOpenAsLastReported) {
  withUsedHost(hostInformation(), [this](const Host&) {
    const Error error{"domain", 5, {}};
    EXPECT_FALSE(communicator().isServerOpen());
    communicator().didCheckServerOpen(true, &error);
    EXPECT_TRUE(communicator().isServerOpen());
    communicator().startHelper();
    communicator().stopHelper();
    EXPECT_TRUE(communicator().isServerOpen());
    communicator().didCheckServerOpen(false, nullptr);
    EXPECT_FALSE(communicator().isServerOpen());
  });
}

TEST_F(HelperCommunicate, ServerNotOpenIsTheStatusTenOnly) {
  withUsedHost(hostInformation(), [this](const Host&) {
    for (int status = -32768; status <= 32767; ++status) {
      EXPECT_EQ(communicator().isHelperSeverNotOpen(static_cast<OSErr>(status)), status == 10);
    }
  });
}

TEST_F(HelperCommunicate, ServerIsOpenUnlessTheHelpersDefaultsSayClosed) {
  withUsedHost(hostInformation(), [this](const Host& host) {
    EXPECT_TRUE(communicator().getDefaultHelperServerOpen());
    host.writeDefaults(helperIdentifier, {{"Other", true}});
    EXPECT_TRUE(communicator().getDefaultHelperServerOpen());
    for (const PropertyList& closed :
         {PropertyList(true), PropertyList("YES"), PropertyList("1"), PropertyList(1)}) {
      host.writeDefaults(helperIdentifier, {{"QBHPServerClosed", closed}});
      EXPECT_FALSE(communicator().getDefaultHelperServerOpen());
    }
    for (const PropertyList& open : {PropertyList(false), PropertyList("NO"), PropertyList(""),
                                     PropertyList(0), PropertyList(PropertyList::Array{})}) {
      host.writeDefaults(helperIdentifier, {{"QBHPServerClosed", open}});
      EXPECT_TRUE(communicator().getDefaultHelperServerOpen());
    }
  });
}

TEST_F(HelperCommunicate, TheHostsOwnDefaultsDoNotCloseTheServer) {
  withHost(hostInformation(), [this](const Host& host) {
    host.writeDefaults(hostIdentifier, {{"QBHPServerClosed", true}});
    EXPECT_TRUE(communicator().getDefaultHelperServerOpen());
  });
}

TEST_F(HelperCommunicate, WithoutAHelperIdentifierTheServerIsOpen) {
  Dictionary info = hostInformation();
  info.erase("Helper Bundle indentifiter");
  withUsedHost(info,
               [this](const Host&) { EXPECT_TRUE(communicator().getDefaultHelperServerOpen()); });
}

TEST_F(HelperCommunicate, RestartWithTheServerClosedGivesTenAndDoesNothing) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    host.writeDefaults(helperIdentifier, {{"QBHPServerClosed", true}});
    transport.answerWith({procNotFound, std::nullopt});
    CapturedLog log;
    EXPECT_EQ(communicator().restartHelperInThread(), 10);
    EXPECT_TRUE(transport.sent().empty());
    EXPECT_TRUE(workspace.opened().empty());
    EXPECT_TRUE(log.lines().empty());
  });
}

TEST_F(HelperCommunicate, RestartOfAHelperThatCanBeReachedGivesZeroAndOpensNothing) {
  withUsedHost(informationWithHelper(), [this](const Host&) {
    EXPECT_EQ(communicator().restartHelperInThread(), noErr);
    EXPECT_EQ(transport.sentMethods(), (Methods{isAlive, start, clientIDFormHelper}));
    EXPECT_TRUE(workspace.opened().empty());
  });
}

TEST_F(HelperCommunicate, RestartOfAHelperThatCannotBeReachedLaunchesIt) {
  withUsedHost(informationWithHelper(), [this](const Host&) {
    transport.answer(isAlive, Answer{procNotFound, std::nullopt});
    EXPECT_EQ(communicator().restartHelperInThread(), noErr);
    EXPECT_EQ(workspace.opened().size(), 1U);
    EXPECT_EQ(transport.sentMethods(), (Methods{isAlive, start, clientIDFormHelper}));
  });
}

TEST_F(HelperCommunicate, HelperAgentIsOpenedInAScopeOfItsOwnIfTheHostWantsThat) {
  for (const bool wanted : {false, true}) {
    auto information = informationWithHelper();
    if (wanted) information.set("Helper in own scope", true);
    withUsedHost(information, [&](const Host&) {
      EXPECT_TRUE(communicator().launchHelepr());
      EXPECT_EQ(workspace.placement, wanted ? Placement::ownScope : Placement::withHost);
    });
  }
}

TEST_F(HelperCommunicate, RestartThatCannotLaunchGivesOne) {
  withUsedHost(informationWithHelper(), [this](const Host&) {
    transport.answerWith({procNotFound, std::nullopt});
    workspace.answer = [](const std::string&) { return false; };
    EXPECT_EQ(communicator().restartHelperInThread(), 1);
    EXPECT_EQ(transport.sentMethods(), Methods{isAlive});
  });
  withUsedHost(hostInformation(), [this](const Host&) {  // no directory is configured
    transport.answerWith({procNotFound, std::nullopt});
    EXPECT_EQ(communicator().restartHelperInThread(), 1);
    EXPECT_TRUE(workspace.opened().empty());
  });
}

TEST_F(HelperCommunicate, AutoRestartReturnsZeroAtOnceAndDetachesOneThreadPerCall) {
  withUsedHost(informationWithHelper(), [this](const Host& host) {
    host.writeDefaults(helperIdentifier, {{"QBHPServerClosed", true}});
    communicator();
    const std::size_t before = threads.count();
    EXPECT_EQ(communicator().autoRestartHelper(), noErr);
    EXPECT_EQ(communicator().autoRestartHelper(), noErr);
    EXPECT_EQ(threads.count(), before + 2);
    EXPECT_TRUE(transport.sent().empty());
  });
}

TEST_F(HelperCommunicate, TheDetachedThreadRunsOneLivenessCheck) {
  withUsedHost(hostInformation(), [this](const Host&) {
    communicator();
    threads.runNext();  // the start-up thread: no helper agent is configured
    EXPECT_TRUE(transport.sent().empty());
    communicator().autoRestartHelper();
    threads.runNext();
    EXPECT_EQ(transport.countOf(isAlive), 1U);
    EXPECT_EQ(transport.countOf(start), 1U);
  });
}

TEST_F(HelperCommunicate, AutoRestartReturnsZeroWhenNoThreadCanBeMade) {
  withUsedHost(informationWithHelper(), [this](const Host&) {
    communicator();
    const std::size_t before = threads.count();
    threads.refuses = true;
    EXPECT_EQ(communicator().autoRestartHelper(), noErr);
    EXPECT_EQ(communicator().showHelper(), noErr);
    EXPECT_EQ(transport.sentMethods(), Methods{"show:prodeuctVersion:"});
    EXPECT_EQ(threads.count(), before);
    threads.refuses = false;
    EXPECT_EQ(communicator().autoRestartHelper(), noErr);
    EXPECT_EQ(threads.count(), before + 1);
  });
}

TEST_F(HelperCommunicate, AHundredGuardedRequestsMakeEightThreadsAndOneCheckMore) {
  withUsedHost(informationWithHelper(), [this](const Host&) {
    communicator();
    threads.runNext();  // the start-up thread
    transport.reset();
    for (int i = 0; i < 100; ++i) EXPECT_EQ(communicator().showHelper(), noErr);
    EXPECT_EQ(threads.count(), 8U);
    EXPECT_EQ(transport.countOf(isAlive), 0U);
    while (threads.count() > 0) threads.runNext();
    EXPECT_EQ(transport.countOf(isAlive), 9U);
  });
}

TEST_F(HelperCommunicate, AutoRestartDoesNotWaitForACheckThatHangs) {
  withUsedHost(hostInformation(), [this](const Host&) {
    communicator();
    std::promise<void> release;
    std::shared_future<void> released(release.get_future());
    transport.answer(isAlive, Answerer([released](const auto&) {
                       released.wait();
                       return Answer{procNotFound, std::nullopt};
                     }));
    EXPECT_EQ(communicator().autoRestartHelper(), noErr);
    threads.runNext();  // the start-up thread
    std::thread check([this] { threads.runNext(); });
    EXPECT_TRUE(transport.waitForMethod(isAlive));
    EXPECT_EQ(communicator().autoRestartHelper(), noErr);
    EXPECT_EQ(communicator().stopHelper(), noErr);  // other requests do not wait
    release.set_value();
    check.join();
  });
}

TEST_F(HelperCommunicate, ClientIDIsAbsentWhileItIsFetched) {
  withUsedHost(hostInformation(), [this](const Host&) {
    transport.answer(clientIDFormHelper, Answer{noErr, "client 1"});
    EXPECT_EQ(communicator().clientIDFormHelper(), "client 1");
    EXPECT_EQ(communicator().clientID(), "client 1");
    String meanwhile = "not asked";
    transport.answer(clientIDFormHelper, Answerer([&](const auto&) {
                       meanwhile = communicator().clientID();
                       return Answer{noErr, "client 2"};
                     }));
    EXPECT_EQ(communicator().clientIDFormHelper(), "client 2");
    EXPECT_EQ(meanwhile, std::nullopt);
    EXPECT_EQ(communicator().clientID(), "client 2");
  });
}

TEST_F(HelperCommunicate, ClientIDIsAbsentAfterARequestWithoutAnAnswer) {
  withUsedHost(hostInformation(), [this](const Host&) {
    transport.answer(clientIDFormHelper, Answer{noErr, "client 1"});
    communicator().clientIDFormHelper();
    transport.answer(clientIDFormHelper, Answer{procNotFound, std::nullopt});
    EXPECT_EQ(communicator().clientIDFormHelper(), std::nullopt);
    EXPECT_EQ(communicator().clientID(), std::nullopt);
  });
}

TEST_F(HelperCommunicate, ReadingTheClientIDSendsNothing) {
  withUsedHost(hostInformation(), [this](const Host&) {
    EXPECT_EQ(communicator().clientID(), std::nullopt);
    EXPECT_TRUE(transport.sent().empty());
  });
}

TEST_F(HelperCommunicate, ReadingTheClientIDDoesNotWaitForARequestUnderWay) {
  withUsedHost(hostInformation(), [this](const Host&) {
    communicator();
    std::promise<void> release;
    transport.answer(clientIDFormHelper, Answerer([&](const auto&) {
                       release.get_future().wait();
                       return Answer{noErr, "client 1"};
                     }));
    std::thread fetching([this] { communicator().clientIDFormHelper(); });
    EXPECT_TRUE(transport.waitForMethod(clientIDFormHelper));
    EXPECT_EQ(communicator().clientID(), std::nullopt);
    release.set_value();
    fetching.join();
    EXPECT_EQ(communicator().clientID(), "client 1");
  });
}

TEST_F(HelperCommunicate, CannotBeCalledByNameAndKeepsItsPlace) {
  withUsedHost(hostInformation(), [this](const Host&) {
    EXPECT_EQ(communicator().className(), "QBHPHelperCommunicate");
    EXPECT_EQ(communicator().performSelector("stopHelper", {}), std::nullopt);
    CapturedLog log;
    transport.deliver({"QBHPHelperCommunicate", "stopHelper", {}});
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(transport.sent().empty());
    EXPECT_EQ(QBHPHelperControl::share().helperCtrlDelegate(), &communicator());
  });
}

TEST_F(HelperCommunicate, ManyChecksAtOnceLeaveAConsistentState) {
  withUsedHost(hostInformation(), [this](const Host&) {
    communicator();
    transport.answer(clientIDFormHelper, Answer{noErr, "client 1"});
    std::vector<std::thread> checks;
    for (int i = 0; i < 8; ++i) {
      checks.emplace_back([this] {
        for (int round = 0; round < 20; ++round) communicator().restartHelperInThread();
      });
    }
    for (std::thread& check : checks) check.join();
    EXPECT_EQ(transport.countOf(isAlive), 160U);
    EXPECT_GE(transport.countOf(start), 1U);
    EXPECT_LE(transport.countOf(start), 8U);
    EXPECT_EQ(communicator().clientID(), "client 1");
  });
}

}  // namespace
}  // namespace qbdkr::test
