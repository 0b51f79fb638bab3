#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <ClientComm/ClassRegistry.h>
#include <ClientComm/Exceptions.h>
#include <ClientComm/QBHPAppleEventProcesser.h>
#include <ClientComm/QBHPAppleEventSender.h>
#include <ClientComm/QBHPHelperControl.h>
#include <ClientComm/QBHPUpgradeByHelper.h>

#include "Host.h"
#include "Platform/Events/AppleEvents/RPCAppleEvent.h"
#include "Platform/Events/BundleIdentifier.h"
#include "support/CapturedLog.h"
#include "support/RecordingTransport.h"
#include "support/WatchedThread.h"

namespace qbdkr::test {
namespace {

constexpr const char* ownIdentifier = "com.Example.UnitTests";

String owned(Text text) { return text ? String(*text) : std::nullopt; }

// A service; onCall is the body of its first method.
class Service : public QBHPAppEventBase {
 public:
  explicit Service(std::string name) : name_(std::move(name)) {
    QBHPAppleEventProcesser::share().setObjectforKeyToMapTable(*this, name_);
  }
  ~Service() override { QBHPAppleEventProcesser::share().removeObjectforKeyToMapTable(name_); }

  String call(Text one, Text two, Text three, Text four) {
    calls.push_back({owned(one), owned(two), owned(three), owned(four)});
    return onCall ? onCall() : std::nullopt;
  }
  OSErr report(Text) {
    ++reports;
    return noErr;
  }
  String greet() { return "greetings"; }
  String unnamed() { return "unnamed"; }
  void setBundleID(Text bundleID) override {
    senders.emplace_back(bundleID.value_or("(absent)"));
    QBHPAppEventBase::setBundleID(bundleID);
  }

  std::vector<std::array<String, 4>> calls;
  std::function<String()> onCall;
  int reports = 0;
  std::vector<std::string> senders;

  [[nodiscard]] std::string_view className() const override { return name_; }

 protected:
  [[nodiscard]] std::span<const Method> methods() const override {
    using Self = Service;
    static constexpr std::array table{
        method<&Self::call>(selector<&Self::call>("call:two:three:four:")),
        method<&Self::report>(selector<&Self::report>("report:")),
        method<&Self::greet>(selector<&Self::greet>("greet")),
        method<&Self::unnamed>(selector<&Self::unnamed>("")),
    };
    return table;
  }

 private:
  std::string name_;
};

// Counts its objects.
class MadeByName : public QBHPAppEventBase {
 public:
  static constexpr std::string_view kClassName = "MadeByName";
  static inline int made = 0;
  MadeByName() { ++made; }
  // Tells which object it is, and which of its calls.
  String identity() { return std::to_string(made) + '/' + std::to_string(++calls_); }
  [[nodiscard]] std::string_view className() const override { return kClassName; }

 protected:
  [[nodiscard]] std::span<const Method> methods() const override {
    using Self = MadeByName;
    static constexpr std::array table{
        method<&Self::identity>(selector<&Self::identity>("identity"))};
    return table;
  }

 private:
  int calls_ = 0;
};

class ThrowsWhenMade : public MadeByName {
 public:
  ThrowsWhenMade() { throw std::runtime_error("not made"); }
};

class AppleEventProcesser : public testing::Test {
 protected:
  AppleEventProcesser() { transport.reset(); }

  // Handles an event in its form on macOS.
  String process(const AppleEvent& event) {
    AppleEvent reply;
    processer.process(event, reply);
    EXPECT_EQ(reply.eventClass(), typeNull);
    return resultOf(reply);
  }
  String deliver(const RPCEvent& event, pid_t sender = getpid()) {
    return process(inboundAppleEvent(event, sender));
  }

  RecordingTransport& transport = RecordingTransport::installed();
  QBHPAppleEventProcesser& processer = QBHPAppleEventProcesser::share();
  Service service{"Service"};
};

TEST_F(AppleEventProcesser, ShareIsOneObjectThatHandlesRPCEvents) {
  EXPECT_EQ(&QBHPAppleEventProcesser::share(), &processer);
  EXPECT_TRUE(transport.hasHandler());
}

TEST_F(AppleEventProcesser, UnRegistRemovesTheHandlerAndRegistInstallsIt) {
  processer.unRegist();
  EXPECT_FALSE(transport.hasHandler());
  processer.regist();
  EXPECT_TRUE(transport.hasHandler());
  EXPECT_EQ(transport.deliver({"Service", "greet", {}}), "greetings");
}

TEST_F(AppleEventProcesser, ASecondObjectTakesOverAndItsEndRemovesTheHandler) {
  {
    QBHPAppleEventProcesser second;
    CapturedLog log;
    EXPECT_EQ(transport.deliver({"Service", "greet", {}}), std::nullopt);  // knows no object
    EXPECT_EQ(log.lines(), std::vector<std::string>{"classname is a class but it not find"});
  }
  EXPECT_FALSE(transport.hasHandler());
  processer.regist();
}

TEST_F(AppleEventProcesser, CallsTheMethodWithTheArgumentsOfTheEvent) {
  deliver({"Service", "call:two:three:four:", {"a", "", "c", "\u263A"}});
  ASSERT_EQ(service.calls.size(), 1U);
  EXPECT_EQ(service.calls[0], (std::array<String, 4>{"a", "", "c", "\u263A"}));
}

TEST_F(AppleEventProcesser, MissingArgumentsArePassedAsAbsent) {
  deliver({"Service", "call:two:three:four:", {"a", "b", "c"}});
  ASSERT_EQ(service.calls.size(), 1U);
  EXPECT_EQ(service.calls[0], (std::array<String, 4>{"a", "b", "c", std::nullopt}));
}

TEST_F(AppleEventProcesser, TooManyArgumentsCallNothingAndReplyWithoutAResult) {
  CapturedLog log;
  EXPECT_EQ(deliver({"Service", "greet", {"one too many"}}), std::nullopt);
  EXPECT_EQ(deliver({"Service", "call:two:three:four:", {"1", "2", "3", "4", "5"}}), std::nullopt);
  EXPECT_TRUE(service.calls.empty());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(AppleEventProcesser, ATextResultIsTheReply) {
  EXPECT_EQ(deliver({"Service", "greet", {}}), "greetings");
}

TEST_F(AppleEventProcesser, AStatusGivesAReplyWithoutAResult) {
  EXPECT_EQ(deliver({"Service", "report:", {"a"}}), std::nullopt);
  EXPECT_EQ(service.reports, 1);
}

TEST_F(AppleEventProcesser, AMethodWithoutItsLastColonIsNotCalled) {
  CapturedLog log;
  EXPECT_EQ(deliver({"Service", "report", {"a"}}), std::nullopt);
  EXPECT_EQ(deliver({"Service", "report::", {"a"}}), std::nullopt);
  EXPECT_EQ(deliver({"Service", "Report:", {"a"}}), std::nullopt);
  EXPECT_EQ(service.reports, 0);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(AppleEventProcesser, AnUnknownClassIsLoggedOnceAndRepliedWithoutAResult) {
  CapturedLog log;
  EXPECT_EQ(deliver({"NoSuchClass", "greet", {}}), std::nullopt);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"classname is a class but it not find"});
  EXPECT_EQ(deliver({"", "greet", {}}), std::nullopt);
  EXPECT_EQ(log.lines().size(), 2U);
}

TEST_F(AppleEventProcesser, AKnownClassIsMadeOnceAndReused) {
  registerClass<MadeByName>();
  const int before = MadeByName::made;
  const std::string number = std::to_string(before + 1);
  EXPECT_EQ(deliver({"MadeByName", "identity", {}}), number + "/1");
  EXPECT_EQ(deliver({"MadeByName", "identity", {}}), number + "/2");
  EXPECT_EQ(MadeByName::made, before + 1);
  processer.removeObjectforKeyToMapTable("MadeByName");
}

TEST_F(AppleEventProcesser, AnObjectThatIsRegisteredLaterReplacesTheOneMadeByName) {
  registerClass<MadeByName>();
  deliver({"MadeByName", "identity", {}});
  Service replacement("MadeByName");
  EXPECT_EQ(deliver({"MadeByName", "greet", {}}), "greetings");
}

TEST_F(AppleEventProcesser, AHelperControlMadeByNameGivesWayToTheSharedOne) {
  inHost(hostInformation(), [this](const Host&) {
    {
      CapturedLog log;
      deliver({"QBHPHelperControl", "helperExitNotify:", {"x"}});
      EXPECT_EQ(log.lines(), std::vector<std::string>{"helperExitNotify: x"});
    }
    class Delegate : public QBHPWillHelperExitDelegate {
     public:
      void willHelperExit() override { ++calls; }
      int calls = 0;
    } delegate;
    QBHPHelperControl::share().setHelperCtrlDelegate(&delegate);
    deliver({"QBHPHelperControl", "helperExitNotify:", {"x"}});
    EXPECT_EQ(delegate.calls, 1);
    QBHPHelperControl::share().setHelperCtrlDelegate(nullptr);
  });
}

// Makes an object after another thread registered one of the same name.
template <class Made>
struct MadeTooLate {
  static inline std::unique_ptr<Service> shared;
  static inline int made = 0;

  static std::unique_ptr<QBHPAppEventBase> make() {
    std::thread([] { shared = std::make_unique<Service>("MadeTooLate"); }).join();
    ++made;
    return std::make_unique<Made>();
  }
};

// Registers itself as the service classes do.
struct OtherService : Service {
  OtherService() : Service("MadeTooLate") {}
};

template <class Race>
int callsOfTheSharedObject(RecordingTransport& transport) {
  registerClass("MadeTooLate", Race::make);
  for (int call = 0; call < 2; ++call) {
    transport.deliver({"MadeTooLate", "report:", {"a"}});
  }
  const int calls = Race::shared ? Race::shared->reports : 0;
  Race::shared.reset();
  return calls;
}

TEST_F(AppleEventProcesser, AnObjectMadeByNameGivesWayToOneRegisteredMeanwhile) {
  using Race = MadeTooLate<MadeByName>;
  EXPECT_EQ(callsOfTheSharedObject<Race>(transport), 2);
  EXPECT_EQ(Race::made, 1);
}

TEST_F(AppleEventProcesser, AnObjectMadeByNameThatRegistersItselfGivesWayToOneRegisteredMeanwhile) {
  using Race = MadeTooLate<OtherService>;
  EXPECT_EQ(callsOfTheSharedObject<Race>(transport), 2);
  EXPECT_EQ(Race::made, 1);
}

TEST_F(AppleEventProcesser, TheCommunicatorIsKnownButNothingOfItCanBeCalled) {
  inHost(hostInformation(), [this](const Host& host) {
    const RunningApplication application(host.home / "Caller.app",
                                         {{"CFBundleIdentifier", "com.Example.Caller"}});
    CapturedLog log;
    const auto callAll = [&] {
      for (const char* method :
           {"processHelper", "startHelper", "stopHelper", "willHelperExit", "autoRestartHelper",
            "setCollectDataPID:", "didCheckServerOpen::", "showHelper", "setEnableAD:"}) {
        EXPECT_EQ(deliver({"QBHPHelperCommunicate", method, {}}, application.processID()),
                  std::nullopt);
      }
    };
    callAll();
    EXPECT_TRUE(service.bundleIDSet().contains("com.Example.Caller"));
    EXPECT_EQ(QBHPHelperControl::share().helperCtrlDelegate(), nullptr) << "one was made";
    EXPECT_TRUE(transport.sent().empty());
    EXPECT_TRUE(log.lines().empty());
  });
}

// Does some work in its constructor.
template <int Number>
struct DoesWhileMade : MadeByName {
  static inline std::function<void()> work;
  DoesWhileMade() { work(); }
};

TEST_F(AppleEventProcesser, ASingletonMadeWhileAnotherClassIsMadeByNameReplacesAnEarlierObject) {
  inHost(hostInformation(), [this](const Host&) {
    struct Delegate : QBHPProductWillUpgradeDelegate {
      void productWillUpgrade(const Error* /*error*/) override { ++asked; }
      int asked = 0;
    } delegate;
    const RPCEvent question{
        "QBHPUpgradeByHelper", "productUpgradeCallBack::::", {"a", "b", "0", ""}};
    deliver(question);  // gets an object of its own, which has no delegate
    using Opener = DoesWhileMade<1>;
    Opener::work = [&] { QBHPUpgradeByHelper::share().setProductUpgradeDelegate(&delegate); };
    registerClass("Opener",
                  []() -> std::unique_ptr<QBHPAppEventBase> { return std::make_unique<Opener>(); });
    deliver({"Opener", "identity", {}});
    deliver(question);
    EXPECT_EQ(delegate.asked, 1);
    QBHPUpgradeByHelper::share().setProductUpgradeDelegate(nullptr);
  });
}

TEST_F(AppleEventProcesser, AnObjectMadeByNameGivesWayAlsoWhenItsMakingMadeAnother) {
  using Race = MadeTooLate<OtherService>;
  using Inner = DoesWhileMade<2>;
  Inner::work = [] {};
  registerClass("Inner",
                []() -> std::unique_ptr<QBHPAppEventBase> { return std::make_unique<Inner>(); });
  static const auto deliverInner = [this] { deliver({"Inner", "identity", {}}); };
  registerClass("MadeTooLate", []() -> std::unique_ptr<QBHPAppEventBase> {
    deliverInner();
    return Race::make();
  });
  const int before = Race::made;
  deliver({"MadeTooLate", "report:", {"a"}});
  EXPECT_EQ(Race::made, before + 1);
  EXPECT_EQ(Race::shared->reports, 1);
  Race::shared.reset();
  processer.removeObjectforKeyToMapTable("Inner");
}

// Makes objects on two threads at once: waits until both have found none registered.
template <class Made>
struct MadeTwice {
  static inline std::mutex mutex;
  static inline std::condition_variable begun;
  static inline int makers = 0;
  static inline std::vector<Made*> objects;

  static std::unique_ptr<QBHPAppEventBase> make() {
    std::unique_lock lock(mutex);
    ++makers;
    begun.notify_all();
    begun.wait_for(lock, patience, [] { return makers >= 2; });
    auto made = std::make_unique<Made>();
    objects.push_back(made.get());
    return made;
  }

  // Returns the counts of reports that the objects got, of three.
  static std::vector<int> reports(RecordingTransport& transport) {
    registerClass("MadeTwice", make);
    const auto deliver = [&] { transport.deliver({"MadeTwice", "report:", {"a"}}); };
    std::thread other(deliver);
    deliver();
    other.join();
    deliver();
    QBHPAppleEventProcesser::share().removeObjectforKeyToMapTable("MadeTwice");
    std::vector<int> counts;
    for (const Made* object : objects) counts.push_back(object->reports);
    std::ranges::sort(counts);
    return counts;
  }
};

struct RegistersItself : Service {
  RegistersItself() : Service("MadeTwice") {}
};

struct RegistersElsewhere : Service {
  RegistersElsewhere() : Service("Elsewhere") {}
};

TEST_F(AppleEventProcesser, OfTwoObjectsMadeAtTheSameTimeOneGetsAllEvents) {
  EXPECT_EQ(MadeTwice<RegistersElsewhere>::reports(transport), (std::vector<int>{0, 3}));
  EXPECT_EQ(MadeTwice<RegistersItself>::reports(transport), (std::vector<int>{0, 3}));
  processer.removeObjectforKeyToMapTable("Elsewhere");
}

TEST_F(AppleEventProcesser, AClassThatCannotBeMadeLeavesTheEventToThePlatform) {
  registerClass("ThrowsWhenMade", []() -> std::unique_ptr<QBHPAppEventBase> {
    return std::make_unique<ThrowsWhenMade>();
  });
  EXPECT_THROW(deliver({"ThrowsWhenMade", "identity", {}}), std::runtime_error);
  EXPECT_EQ(deliver({"Service", "greet", {}}), "greetings");
  Service replacement("Service");  // registering still works as before
  deliver({"Service", "report:", {"a"}});
  EXPECT_EQ(replacement.reports, 1);
}

TEST_F(AppleEventProcesser, ARemovedObjectIsNotCalled) {
  processer.removeObjectforKeyToMapTable("Service");
  CapturedLog log;
  EXPECT_EQ(deliver({"Service", "greet", {}}), std::nullopt);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"classname is a class but it not find"});
  processer.removeObjectforKeyToMapTable("never registered");
}

TEST_F(AppleEventProcesser, TheSenderIsAddedToTheBundleIDSetOnce) {
  const auto before = service.bundleIDSet();
  deliver({"Service", "greet", {}});
  deliver({"Service", "greet", {}});
  auto expected = before;
  expected.insert(ownIdentifier);
  EXPECT_EQ(service.bundleIDSet(), expected);
  EXPECT_EQ(service.senders, (std::vector<std::string>{ownIdentifier, ownIdentifier}));
}

TEST_F(AppleEventProcesser, AMethodFindsItsSenderInTheBundleIDSet) {
  inHost(hostInformation(), [this](const Host& host) {
    const RunningApplication application(host.home / "First.app",
                                         {{"CFBundleIdentifier", "com.Example.First"}});
    bool found = false;
    service.onCall = [&]() -> String {
      found = service.bundleIDSet().contains("com.Example.First");
      return std::nullopt;
    };
    deliver({"Service", "call:two:three:four:", {}}, application.processID());
    EXPECT_TRUE(found);
  });
}

TEST_F(AppleEventProcesser, TheSenderIsRecordedBeforeAnUnknownMethodIsNotCalled) {
  deliver({"Service", "noSuchMethod", {}});
  EXPECT_EQ(service.senders, std::vector<std::string>{ownIdentifier});
}

TEST_F(AppleEventProcesser, TheSenderIsTheApplicationOfTheSendingProcess) {
  inHost(hostInformation(), [this](const Host& host) {
    const RunningApplication application(host.home / "Sender.app",
                                         {{"CFBundleIdentifier", "com.Example.Sender"}});
    deliver({"Service", "greet", {}}, application.processID());
    EXPECT_EQ(service.senders, std::vector<std::string>{"com.Example.Sender"});
    EXPECT_TRUE(service.bundleIDSet().contains("com.Example.Sender"));
  });
}

TEST_F(AppleEventProcesser, TheSenderIsTheOneThatTheTransportGives) {
  const auto before = service.bundleIDSet();
  EXPECT_EQ(transport.deliver({"Service", "greet", {}}, std::nullopt), std::nullopt);
  EXPECT_EQ(service.bundleIDSet(), before);
  EXPECT_EQ(transport.deliver({"Service", "greet", {}}, "com.Example.Before"), "greetings");
  EXPECT_EQ(service.senders, (std::vector<std::string>{"(absent)", "com.Example.Before"}));
  EXPECT_TRUE(service.bundleIDSet().contains("com.Example.Before"));
}

TEST_F(AppleEventProcesser, ANameThatTheTransportDoesNotGiveIsAbsent) {
  CapturedLog log;
  EXPECT_EQ(transport.deliver({std::nullopt, "greet", {}}), std::nullopt);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"classname is a class but it not find"});
  EXPECT_EQ(transport.deliver({"Service", std::nullopt, {}}), std::nullopt);
  EXPECT_EQ(log.lines().size(), 1U);
  EXPECT_EQ(service.senders, std::vector<std::string>{someSender});
}

TEST_F(AppleEventProcesser, AnIdentifierOfMoreThan255BytesCountsAsNone) {
  inHost(hostInformation(), [this](const Host& host) {
    const auto send = [&](const std::string& name, const std::string& identifier) {
      const RunningApplication application(host.home / name, {{"CFBundleIdentifier", identifier}});
      return deliver({"Service", "greet", {}}, application.processID());
    };
    const std::string longest = "com." + std::string(longestBundleIdentifier - 4, 'a');
    EXPECT_EQ(send("Longest.app", longest), "greetings");
    EXPECT_EQ(send("TooLong.app", longest + 'a'), std::nullopt);
    EXPECT_EQ(send("Empty.app", ""), std::nullopt);
    EXPECT_EQ(service.senders, (std::vector<std::string>{longest, "(absent)", "(absent)"}));
  });
}

TEST_F(AppleEventProcesser, AnEventOfAProcessOutsideAnyBundleIsNotDispatched) {
  const auto before = service.bundleIDSet();
  const RunningDaemon daemon("sampled");
  EXPECT_EQ(deliver({"Service", "greet", {}}, daemon.processID()), std::nullopt);
  EXPECT_EQ(service.bundleIDSet(), before);
  EXPECT_EQ(service.senders, std::vector<std::string>{"(absent)"});
}

TEST_F(AppleEventProcesser, AnEventWithoutASenderIsNotDispatched) {
  const auto before = service.bundleIDSet();
  AppleEvent event(kCoreEventClass, kAECall, {}, kAutoGenerateReturnID, kAnyTransactionID);
  const AppleEvent complete = inboundAppleEvent({"Service", "greet", {}}, getpid());
  event.setParamDescriptor(keyDirectObject,
                           AppleEventDescriptor(*complete.paramDescriptor(keyDirectObject)));
  CapturedLog log;
  EXPECT_EQ(process(event), std::nullopt);
  EXPECT_EQ(service.bundleIDSet(), before);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(AppleEventProcesser, OnlyAnAddressOfEightBytesNamesASender) {
  const auto deliverFrom = [this](AppleEventDescriptor address) {
    AppleEvent event = inboundAppleEvent({"Service", "greet", {}}, 1);
    event.setAttributeDescriptor(keyAddressAttr, std::move(address));
    return process(event);
  };
  std::string serial(8, '\0');
  for (std::size_t i = 0; i < 4; ++i) {
    serial[4 + i] = static_cast<char>(static_cast<unsigned>(getpid()) >> (24 - 8 * i) & 0xFFU);
  }
  const auto address = [](std::string bytes) {
    return AppleEventDescriptor::withBytes(typeProcessSerialNumber, std::move(bytes));
  };
  EXPECT_EQ(deliverFrom(address(serial)), "greetings");
  EXPECT_EQ(deliverFrom(address(serial.substr(1))), std::nullopt);
  EXPECT_EQ(deliverFrom(address(serial + '\0')), std::nullopt);
  EXPECT_EQ(deliverFrom(address('\0' + serial)), std::nullopt);
  EXPECT_EQ(deliverFrom(address("")), std::nullopt);
  EXPECT_EQ(deliverFrom(address(std::string(8, '\xFF'))), std::nullopt);
  EXPECT_EQ(deliverFrom(address(std::string(8, '\0'))), std::nullopt);
  EXPECT_EQ(deliverFrom(AppleEventDescriptor()), std::nullopt);
  EXPECT_EQ(deliverFrom(AppleEventDescriptor::withString(ownIdentifier)), std::nullopt);
  EXPECT_EQ(deliverFrom(AppleEventDescriptor::list()), std::nullopt);
  EXPECT_EQ(deliverFrom(AppleEventDescriptor::withBytes(typeKernelProcessID, "xyz")), std::nullopt);
}

TEST_F(AppleEventProcesser, AProcessThatIsGoneIsNoSender) {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  waitpid(child, nullptr, 0);
  EXPECT_EQ(deliver({"Service", "greet", {}}, child), std::nullopt);
}

TEST_F(AppleEventProcesser, WhatAMethodThrowsIsSwallowedWithoutALogLine) {
  CapturedLog log;
  service.onCall = []() -> String { throw RangeException("out of range"); };
  EXPECT_EQ(deliver({"Service", "call:two:three:four:", {}}), std::nullopt);
  service.onCall = []() -> String { throw 42; };
  EXPECT_EQ(deliver({"Service", "call:two:three:four:", {}}), std::nullopt);
  EXPECT_EQ(service.calls.size(), 2U);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(AppleEventProcesser, TheLockIsFreeAfterAnException) {
  service.onCall = []() -> String { throw std::runtime_error("raised"); };
  deliver({"Service", "call:two:three:four:", {}});
  String answer;
  std::thread([&] { answer = deliver({"Service", "greet", {}}); }).join();
  EXPECT_EQ(answer, "greetings");
}

// Makes an event of this process with any direct object, or without one.
AppleEvent eventWith(std::optional<AppleEventDescriptor> directObject) {
  const AppleEvent complete = inboundAppleEvent({"", "", {}}, getpid());
  AppleEvent event(kCoreEventClass, kAECall, {}, kAutoGenerateReturnID, kAnyTransactionID);
  event.setAttributeDescriptor(keyAddressAttr,
                               AppleEventDescriptor(*complete.attributeDescriptor(keyAddressAttr)));
  if (directObject) event.setParamDescriptor(keyDirectObject, *std::move(directObject));
  return event;
}

AppleEventDescriptor text(const char* value) { return AppleEventDescriptor::withString(value); }

AppleEventDescriptor number() {
  return AppleEventDescriptor::withBytes(fourCharCode("long"), "1234");
}

AppleEventDescriptor items(std::vector<AppleEventDescriptor> list) {
  return AppleEventDescriptor::list(std::move(list));
}

TEST_F(AppleEventProcesser, AnArgumentThatIsNoTextLeavesTheEventToThePlatform) {
  for (const AppleEventDescriptor& argument :
       {AppleEventDescriptor(), AppleEventDescriptor::list(), number()}) {
    EXPECT_THROW(
        process(eventWith(items({text("Service"), text("report:"), items({text("a"), argument})}))),
        InvalidArgumentException);
    // It throws before it looks up the class and records the sender.
    CapturedLog log;
    EXPECT_THROW(
        process(eventWith(items({text("NoSuchClass"), text("report:"), items({argument})}))),
        InvalidArgumentException);
    EXPECT_TRUE(log.lines().empty());
  }
  EXPECT_EQ(service.reports, 0);
  EXPECT_TRUE(service.senders.empty());
}

TEST_F(AppleEventProcesser, AnEventThatNamesNoClassIsLoggedLikeAnUnknownOne) {
  const Service emptyName("");  // the empty name is valid
  EXPECT_EQ(deliver({"", "", {}}), "unnamed");
  for (const std::optional<AppleEventDescriptor>& directObject :
       std::vector<std::optional<AppleEventDescriptor>>{
           std::nullopt, AppleEventDescriptor(), text("Service"), number(), items({}),
           items({AppleEventDescriptor(), text("greet"), items({})}),
           items({number(), text("greet"), items({})}),
           items({items({text("Service")}), text("greet"), items({})})}) {
    CapturedLog log;
    EXPECT_EQ(process(eventWith(directObject)), std::nullopt);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"classname is a class but it not find"});
  }
  EXPECT_TRUE(service.senders.empty());
  EXPECT_EQ(emptyName.senders.size(), 1U);
}

TEST_F(AppleEventProcesser, WithoutAListOfArgumentsThereAreNone) {
  for (const AppleEventDescriptor& directObject :
       {items({text("Service"), text("report:")}),
        items({text("Service"), text("report:"), AppleEventDescriptor()}),
        items({text("Service"), text("report:"), text("a")})}) {
    const int before = service.reports;
    process(eventWith(directObject));
    EXPECT_EQ(service.reports, before + 1);
  }
  process(eventWith(items({text("Service"), text("call:two:three:four:")})));
  ASSERT_EQ(service.calls.size(), 1U);
  EXPECT_EQ(service.calls[0], (std::array<String, 4>{}));
}

TEST_F(AppleEventProcesser, AnEventThatNamesNoMethodCallsNothingAndIsNotLogged) {
  CapturedLog log;
  for (const AppleEventDescriptor& directObject :
       {items({text("Service")}), items({text("Service"), AppleEventDescriptor(), items({})}),
        items({text("Service"), number(), items({text("a")})})}) {
    service.senders.clear();
    EXPECT_EQ(process(eventWith(directObject)), std::nullopt);
    EXPECT_EQ(service.senders, std::vector<std::string>{ownIdentifier});
  }
  EXPECT_TRUE(log.lines().empty());
  EXPECT_TRUE(service.calls.empty());
  EXPECT_EQ(service.reports, 0);
}

TEST_F(AppleEventProcesser, WhatStandsBehindTheThirdItemIsNotRead) {
  EXPECT_EQ(process(eventWith(items({text("Service"), text("greet"), items({}), number()}))),
            "greetings");
}

TEST_F(AppleEventProcesser, AMethodMaySendAndBeReenteredOnItsOwnThread) {
  int depth = 0;
  service.onCall = [&]() -> String {
    if (++depth > 1) return "inner";
    String result;
    QBHPAppleEventSender::share().sendEvnet("Peer", "ask", {}, result);
    return "outer after " + result.value_or("(absent)");
  };
  // The peer asks back before it answers.
  transport.answer(
      "ask", RecordingTransport::Answerer([this](const RecordingTransport::Sent&) {
        return RecordingTransport::Answer{noErr, deliver({"Service", "call:two:three:four:", {}})};
      }));
  EXPECT_EQ(deliver({"Service", "call:two:three:four:", {}}), "outer after inner");
  EXPECT_EQ(depth, 2);
}

// Runs work on a thread of its own, while a method waits for that thread as a delegate may do on
// the main thread. False if the work waits for the method in turn.
bool endsWhileAMethodWaitsForIt(Service& service, RecordingTransport& transport,
                                const std::function<void()>& work) {
  std::promise<void> worked;
  std::thread worker;
  bool ended = false;
  service.onCall = [&]() -> String {
    worker = std::thread([&] {
      work();
      worked.set_value();
    });
    ended = worked.get_future().wait_for(patience) == std::future_status::ready;
    return std::nullopt;
  };
  transport.deliver({"Service", "call:two:three:four:", {}});
  worker.join();
  return ended;
}

TEST_F(AppleEventProcesser, RegisteringAndRemovingDoNotWaitForAMethod) {
  auto other = std::make_unique<Service>("Other");
  EXPECT_TRUE(endsWhileAMethodWaitsForIt(service, transport, [&] {
    other.reset();
    other = std::make_unique<Service>("Other");
    processer.removeObjectforKeyToMapTable("Service");  // its method is running
  }));
  EXPECT_EQ(service.calls.size(), 1U);
  CapturedLog log;
  deliver({"Service", "greet", {}});
  EXPECT_EQ(log.lines(), std::vector<std::string>{"classname is a class but it not find"});
}

TEST_F(AppleEventProcesser, LookingForAClassDoesNotWaitForAMethod) {
  CapturedLog log;
  EXPECT_TRUE(endsWhileAMethodWaitsForIt(service, transport, [this] {
    deliver({"NoSuchClass", "greet", {}});
  }));
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(AppleEventProcesser, MethodsOfSeveralThreadsNeverOverlap) {
  constexpr int threads = 4;
  constexpr int rounds = 100;
  Service other("Other");
  std::atomic<int> inside{0};
  std::atomic<bool> overlapped{false};
  service.onCall = other.onCall = [&]() -> String {
    if (inside.fetch_add(1) != 0) overlapped = true;
    for (int i = 0; i < 10; ++i) std::this_thread::yield();
    inside.fetch_sub(1);
    return std::nullopt;
  };
  std::vector<std::thread> running;
  for (int i = 0; i < threads; ++i) {
    running.emplace_back([&, i] {
      for (int round = 0; round < rounds; ++round) {
        deliver({i % 2 == 0 ? "Service" : "Other", "call:two:three:four:", {}});
      }
    });
  }
  for (std::thread& thread : running) thread.join();
  EXPECT_FALSE(overlapped);
  EXPECT_EQ(service.calls.size() + other.calls.size(), std::size_t{threads} * rounds);
}

}  // namespace
}  // namespace qbdkr::test
