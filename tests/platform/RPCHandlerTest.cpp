#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Platform/RPCEvent.h"
#include "Platform/RPCHandler.h"

namespace qbdkr {
namespace {

AppleEventDescriptor text(std::string value) {
  return AppleEventDescriptor::withString(std::move(value));
}

AppleEventDescriptor request() {
  return AppleEventDescriptor::list({text("Class"), text("method"), AppleEventDescriptor::list()});
}

RPCHandler::Part part(std::optional<AppleEventDescriptor> value) {
  return [value = std::move(value)] { return value; };
}

const RPCHandler::Part unknown = part(std::nullopt);

// What the sender gets when the handler stores that as its result.
RPCHandler::Answer answerTo(AppleEventDescriptor result) {
  RPCHandler handler;
  handler.set([&](const AppleEvent&, AppleEvent& reply) {
    reply.setParamDescriptor(keyDirectObject, std::move(result));
  });
  return handler.handle(part(request()), unknown);
}

TEST(RPCHandlerTest, GetsWhatCameIn) {
  RPCHandler handler;
  const auto address = AppleEventDescriptor::withBytes(typeKernelProcessID, "1234");
  bool called = false;
  handler.set([&](const AppleEvent& event, AppleEvent& reply) {
    called = true;
    EXPECT_EQ(event.eventClass(), kCoreEventClass);
    EXPECT_EQ(event.eventID(), kAECall);
    EXPECT_EQ(*event.paramDescriptor(keyDirectObject), request());
    EXPECT_EQ(*event.attributeDescriptor(keyAddressAttr), address);
    EXPECT_EQ(reply.paramDescriptor(keyDirectObject), nullptr);
  });
  const auto answer = handler.handle(part(request()), part(address));
  EXPECT_TRUE(called);
  EXPECT_EQ(answer.status, noErr);
  EXPECT_EQ(answer.result, "");
}

TEST(RPCHandlerTest, LeavesOutTheAddressOfAnUnknownSender) {
  RPCHandler handler;
  handler.set([](const AppleEvent& event, AppleEvent& reply) {
    if (event.attributeDescriptor(keyAddressAttr) == nullptr) {
      reply.setParamDescriptor(keyDirectObject, text("without"));
    }
  });
  EXPECT_EQ(handler.handle(part(request()), unknown).result, "without");
}

TEST(RPCHandlerTest, IsNotCalledForWhatIsRefusedOrBeyondTheBounds) {
  RPCHandler handler;
  handler.set([](const AppleEvent&, AppleEvent&) { ADD_FAILURE() << "called"; });
  EXPECT_EQ(handler.handle(unknown, unknown).status, paramErr);
  const auto tooLong = text(std::string(longestEventName + 1, 'a'));
  EXPECT_EQ(handler.handle(part(AppleEventDescriptor::list({tooLong})), unknown).status, paramErr);
}

TEST(RPCHandlerTest, JudgesNoForm) {
  for (const AppleEventDescriptor& object :
       {AppleEventDescriptor(), text("text"), AppleEventDescriptor::list(),
        AppleEventDescriptor::list({AppleEventDescriptor(), text("method")}),
        AppleEventDescriptor::list({request()})}) {
    RPCHandler handler;
    std::optional<AppleEventDescriptor> handed;
    handler.set([&](const AppleEvent& event, AppleEvent&) {
      handed = *event.paramDescriptor(keyDirectObject);
    });
    EXPECT_EQ(handler.handle(part(object), unknown).status, noErr);
    EXPECT_EQ(handed, object);
  }
}

TEST(RPCHandlerTest, WithoutAHandlerTheEventIsNotHandled) {
  RPCHandler handler;
  EXPECT_FALSE(handler.isSet());
  EXPECT_EQ(handler.handle(part(request()), unknown).status, errAEEventNotHandled);
  handler.set([](const AppleEvent&, AppleEvent&) {});
  EXPECT_TRUE(handler.isSet());
  handler.set(nullptr);
  EXPECT_FALSE(handler.isSet());
  EXPECT_EQ(handler.handle(part(request()), unknown).status, errAEEventNotHandled);
}

TEST(RPCHandlerTest, WhoSentWhatIsRefusedIsNotAsked) {
  RPCHandler handler;
  const auto asked = []() -> std::optional<AppleEventDescriptor> {
    ADD_FAILURE() << "asked";
    return std::nullopt;
  };
  EXPECT_EQ(handler.handle(asked, asked).status, errAEEventNotHandled);
  handler.set([](const AppleEvent&, AppleEvent&) {});
  EXPECT_EQ(handler.handle(unknown, asked).status, paramErr);
}

TEST(RPCHandlerTest, AHandlerThatGoesMayComeBack) {
  RPCHandler handler;
  bool isBack = false;
  std::shared_ptr<void> last(&handler, [&](void*) { isBack = handler.isSet(); });
  handler.set([held = std::move(last)](const AppleEvent&, AppleEvent&) {});
  handler.set([](const AppleEvent&, AppleEvent&) {});
  EXPECT_TRUE(isBack);
}

TEST(RPCHandlerTest, ItsExceptionIsAFailure) {
  RPCHandler handler;
  handler.set([](const AppleEvent&, AppleEvent&) { throw std::runtime_error("failed"); });
  EXPECT_EQ(handler.handle(part(request()), unknown).status, errAEEventFailed);
  handler.set([](const AppleEvent&, AppleEvent&) { throw 42; });
  EXPECT_EQ(handler.handle(part(request()), unknown).status, errAEEventFailed);
}

TEST(RPCHandlerTest, ItsResultIsTextThatCanBeSentOrNone) {
  EXPECT_EQ(answerTo(text("\u263A")).result, "\u263A");
  EXPECT_EQ(answerTo(AppleEventDescriptor::list()).status, noErr);
  EXPECT_EQ(answerTo(AppleEventDescriptor::list()).result, "");
  EXPECT_EQ(answerTo(text(std::string(mostEventContent, 'a'))).result.size(), mostEventContent);
  for (const std::string& bad :
       {std::string("a\0b", 3), std::string("\xFF"), std::string(mostEventContent + 1, 'a')}) {
    EXPECT_EQ(answerTo(text(bad)).status, errAEEventFailed);
    EXPECT_EQ(answerTo(text(bad)).result, "");
  }
}

}  // namespace
}  // namespace qbdkr
