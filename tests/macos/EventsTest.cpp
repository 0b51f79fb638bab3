// The macOS side of the events, over doubles of the system's calls: they prove what this side does
// with the answers of the system, and nothing about the system.

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <ClientComm/AppleEvent.h>
#include <ClientComm/RunLoop.h>

#include "Platform/Events/NativeTransport.h"
#include "Platform/Events/RPCTransport.h"
#include "macos/doubles/AppleEventManager.h"
#include "macos/doubles/Mach.h"

namespace qbdkr {
namespace {

using Answer = RPCTransport::Answer;
using doubles::AEDescriptor;
using doubles::AppleEventManager;

const RPCTarget target{"com.example.helper", std::nullopt};
const RPCEvent event{"Class", "ask:", {"argument"}};

AppleEventManager& manager() { return AppleEventManager::shared(); }
Answer ask() { return nativeTransport().ask(target, event); }

void onNewThread(const std::function<void()>& body) { std::thread(body).join(); }

// Takes turns of the main run loop until the condition holds.
template <class Condition>
bool dispatchUntil(Condition condition) {
  RunLoop& loop = RunLoop::main();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition() && std::chrono::steady_clock::now() < deadline) {
    pollfd readable{loop.descriptor(), POLLIN, 0};
    ::poll(&readable, 1, 1000);
    loop.dispatch();
  }
  return condition();
}

// Makes every wait end with this direct object in its reply.
void answerWith(const AEDescriptor& object) {
  manager().answer = [object](AEDescriptor& reply) {
    reply.parameters[::keyDirectObject] = object;
    return ::noErr;
  };
}

// Makes every wait end with this error of the target's handler.
void failWith(std::int32_t error) {
  manager().answer = [error](AEDescriptor& reply) {
    reply.parameters[keyErrorNumber] = AEDescriptor::number(error);
    return ::noErr;
  };
}

std::string bytesOf(std::initializer_list<int> bytes) { return {bytes.begin(), bytes.end()}; }

AEDescriptor utf16(std::initializer_list<int> bytes) {
  return AEDescriptor::of(::typeUnicodeText, bytesOf(bytes));
}

TEST(MacOSReplyPortsTest, WaitBesideTheMainThreadNamesAPortOfItsOwn) {
  onNewThread([] { ask(); });
  EXPECT_EQ(manager().lastSent().mode, ::kAEWaitReply);
  EXPECT_EQ(std::vector{manager().lastSent().replyPort()}, doubles::allocatedPorts());
}

TEST(MacOSReplyPortsTest, WaitWithADeadlineBesideTheMainThreadNamesAPortToo) {
  onNewThread([] {
    nativeTransport().askWithin(RequestLimits::within(std::chrono::hours(1)), target, event);
  });
  EXPECT_NE(manager().lastSent().replyPort(), 0U);
}

TEST(MacOSReplyPortsTest, ThreadsThatWaitAtTheSameTimeHaveDifferentPorts) {
  bool isOuter = true;
  manager().answer = [&](AEDescriptor&) {
    if (std::exchange(isOuter, false)) onNewThread([] { ask(); });
    return ::noErr;
  };
  onNewThread([] { ask(); });
  const auto sent = manager().sent();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_NE(sent[0].replyPort(), 0U);
  EXPECT_NE(sent[1].replyPort(), 0U);
  EXPECT_NE(sent[0].replyPort(), sent[1].replyPort());
}

TEST(MacOSReplyPortsTest, ThreadKeepsItsPortAndHandsItOnWhenItEnds) {
  for (int i = 0; i < 10; ++i) {
    onNewThread([] {
      ask();
      ask();
    });
  }
  EXPECT_EQ(doubles::allocatedPorts().size(), 1U);
  EXPECT_TRUE(doubles::releasedPorts().empty());
}

TEST(MacOSReplyPortsTest, PortOfAWaitThatTimedOutIsReleasedAndNotUsedAgain) {
  onNewThread([] {
    manager().answer = [](AEDescriptor&) { return OSStatus{errAETimeout}; };
    EXPECT_EQ(ask().status, errAETimeout);
    manager().answer = nullptr;
    ask();
  });
  const auto sent = manager().sent();
  EXPECT_NE(sent[0].replyPort(), sent[1].replyPort());
  EXPECT_EQ(doubles::releasedPorts(), std::vector{sent[0].replyPort()});
}

TEST(MacOSReplyPortsTest, MainThreadNamesNoPort) {
  ask();
  EXPECT_EQ(manager().lastSent().replyPort(), 0U);
}

TEST(MacOSReplyPortsTest, PostsAndStartedRequestsNameNoPort) {
  onNewThread([] {
    nativeTransport().post(target, event);
    nativeTransport().start(target, event, {}, [](const Answer&) {});
    nativeTransport().post(target, event);  // follows what was started
  });
  const auto sent = manager().sent();
  ASSERT_EQ(sent.size(), 3U);
  EXPECT_EQ(sent[1].mode, ::kAEQueueReply);
  for (const auto& each : sent) EXPECT_EQ(each.replyPort(), 0U);
}

TEST(MacOSStartedRequestsTest, ThreadThatSendsThemHasAnAutoreleasePool) {
  nativeTransport().start(target, event, {}, [](const Answer&) {});
  nativeTransport().post(target, event);  // follows what was started
  EXPECT_EQ(manager().sent().at(0).pools, 1);
}

TEST(MacOSAnswersTest, WaitEndsWithTheErrorInTheReply) {
  failWith(errAEEventNotHandled);
  EXPECT_EQ(ask(), (Answer{errAEEventNotHandled, std::nullopt}));
  failWith(paramErr);
  EXPECT_EQ(ask(), (Answer{paramErr, std::nullopt}));
}

TEST(MacOSAnswersTest, ErrorOf16BitsIsReadAsWell) {
  manager().answer = [](AEDescriptor& reply) {
    reply.parameters[keyErrorNumber] = AEDescriptor::of(typeSInt16, bytesOf({0x54, 0xF9}));
    return ::noErr;
  };
  EXPECT_EQ(ask().status, errAEEventNotHandled);
}

TEST(MacOSAnswersTest, ErrorBeyond16BitsIsNoSuccess) {
  failWith(-65'536);
  EXPECT_EQ(ask().status, errAEEventNotHandled);
}

TEST(MacOSAnswersTest, ReplyWithTheErrorZeroIsASuccess) {
  manager().answer = [](AEDescriptor& reply) {
    reply.parameters[keyErrorNumber] = AEDescriptor::number(0);
    reply.parameters[::keyDirectObject] = AEDescriptor::text(u"result");
    return ::noErr;
  };
  EXPECT_EQ(ask(), (Answer{noErr, "result"}));
}

// Returns the reply of this process, whose handler throws.
AEDescriptor replyOfAHandlerThatThrows() {
  nativeTransport().setHandler(
      [](const RPCEvent&, const std::optional<std::string>&) -> std::optional<std::string> {
        throw std::runtime_error("fails");
      });
  auto call = AEDescriptor::event(kAECall);
  call.parameters[::keyDirectObject] =
      AEDescriptor::list({AEDescriptor::text(u"Class"), AEDescriptor::text(u"ask:")});
  AppleEventManager::deliver(call);
  EXPECT_TRUE(dispatchUntil([] { return !manager().replies().empty(); }));
  return manager().replies().at(0);
}

TEST(MacOSAnswersTest, HandlerThatThrowsIsAnEventNotHandledForAWait) {
  const auto thrown = replyOfAHandlerThatThrows();
  manager().answer = [&](AEDescriptor& reply) {
    reply = thrown;
    return ::noErr;
  };
  EXPECT_EQ(ask(), (Answer{errAEEventNotHandled, std::nullopt}));
}

TEST(MacOSAnswersTest, HandlerThatThrowsIsAnEventNotHandledForAStartedRequest) {
  auto thrown = replyOfAHandlerThatThrows();
  std::promise<Answer> promise;
  auto answer = promise.get_future();
  nativeTransport().start(target, event, {},
                          [&](Answer given) { promise.set_value(std::move(given)); });
  nativeTransport().post(target, event);  // follows what was started
  thrown.attributes[keyReturnIDAttr] = manager().sent().at(0).event.attributes.at(keyReturnIDAttr);
  AppleEventManager::deliver(thrown);
  EXPECT_TRUE(dispatchUntil([] { return manager().replies().size() == 2; }));
  ASSERT_EQ(answer.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  EXPECT_EQ(answer.get(), (Answer{errAEEventNotHandled, std::nullopt}));
}

TEST(MacOSTextsTest, UTF16IsReadByItsMarkAndWithoutOneInTheOrderOfTheProcessor) {
  answerWith(utf16({0xFF, 0xFE, 0xE4, 0x00, 'b', 0x00}));
  EXPECT_EQ(ask().result, "\u00E4b");
  answerWith(utf16({0xFE, 0xFF, 0x00, 0xE4, 0x00, 'b'}));
  EXPECT_EQ(ask().result, "\u00E4b");
  answerWith(AEDescriptor::text(u"\u00E4b"));
  EXPECT_EQ(ask().result, "\u00E4b");
}

TEST(MacOSTextsTest, EmptyUTF16IsAnEmptyText) {
  answerWith(utf16({}));
  EXPECT_EQ(ask().result, "");
  answerWith(utf16({0xFE, 0xFF}));
  EXPECT_EQ(ask().result, "");
}

TEST(MacOSTextsTest, HalfAUnitIsNoText) {
  answerWith(utf16({'a', 0x00, 'b'}));
  EXPECT_EQ(ask(), (Answer{noErr, std::nullopt}));
}

TEST(MacOSTextsTest, UTF8IsTakenAsItIs) {
  answerWith(AEDescriptor::of(typeUTF8Text, "\u00E4b"));
  EXPECT_EQ(ask().result, "\u00E4b");
  answerWith(AEDescriptor::of(typeUTF8Text, bytesOf({0xFF})));
  EXPECT_EQ(ask().result, std::nullopt);
}

TEST(MacOSTextsTest, NeitherFormIsConvertedByTheSystem) {
  answerWith(utf16({0xFE, 0xFF, 0x00, 'a'}));
  ask();
  answerWith(AEDescriptor::of(typeUTF8Text, "a"));
  ask();
  EXPECT_EQ(manager().coercions(), std::vector<DescType>());
}

TEST(MacOSTextsTest, OtherTypesAreConvertedToUTF16) {
  answerWith(AEDescriptor::of(0x54455854, "plain"));  // TEXT
  EXPECT_EQ(ask().result, "plain");
  EXPECT_EQ(manager().coercions(), std::vector<DescType>{::typeUnicodeText});
}

TEST(MacOSTextsTest, TextOfMoreThan64MiBInUTF16AndFewerInUTF8IsAResult) {
  constexpr std::size_t length = std::size_t{33} << 20U;
  answerWith(AEDescriptor::text(std::u16string(length, u'a')));
  EXPECT_EQ(ask().result.value_or("").size(), length);
}

TEST(MacOSTextsTest, TextOfMoreThan64MiBInUTF8IsAnEventNotHandled) {
  constexpr std::size_t length = std::size_t{33} << 20U;
  answerWith(AEDescriptor::text(std::u16string(length, u'\u00E4')));
  EXPECT_EQ(ask(), (Answer{errAEEventNotHandled, std::nullopt}));
}

TEST(MacOSTextsTest, TextsOfAnEventFromOutsideAreReadInTheSameWay) {
  RPCEvent received;
  nativeTransport().setHandler([&](const RPCEvent& given, const auto&) {
    received = given;
    return std::optional<std::string>("result");
  });
  auto call = AEDescriptor::event(kAECall);
  call.parameters[::keyDirectObject] =
      AEDescriptor::list({utf16({0xFE, 0xFF, 0x00, 'C'}), AEDescriptor::of(typeUTF8Text, "ask:"),
                          AEDescriptor::list({utf16({}), AEDescriptor::text(u"\u00E4")})});
  AppleEventManager::deliver(call);
  ASSERT_TRUE(dispatchUntil([] { return !manager().replies().empty(); }));
  EXPECT_EQ(received, (RPCEvent{"C", "ask:", {"", "\u00E4"}}));
  EXPECT_EQ(manager().replies()[0].parameters.at(::keyDirectObject).bytes,
            AEDescriptor::text(u"result").bytes);
}

}  // namespace
}  // namespace qbdkr
