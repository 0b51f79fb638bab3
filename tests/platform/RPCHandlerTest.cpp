#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Platform/RPCHandler.h"

namespace qbdkr {
namespace {

AppleEventDescriptor text(std::string value) {
  return AppleEventDescriptor::withString(std::move(value));
}

AppleEventDescriptor request() {
  return AppleEventDescriptor::list({text("Class"), text("method"), AppleEventDescriptor::list()});
}

// What the sender gets when the handler stores that as its result.
RPCHandler::Answer answerTo(AppleEventDescriptor result) {
  RPCHandler handler;
  handler.set([&](const AppleEvent&, AppleEvent& reply) {
    reply.setParamDescriptor(keyDirectObject, std::move(result));
  });
  return handler.handle(request(), std::nullopt);
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
  const auto answer = handler.handle(request(), address);
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
  EXPECT_EQ(handler.handle(request(), std::nullopt).result, "without");
}

TEST(RPCHandlerTest, IsNotCalledForWhatIsNoRPCEvent) {
  RPCHandler handler;
  handler.set([](const AppleEvent&, AppleEvent&) { ADD_FAILURE() << "called"; });
  EXPECT_EQ(handler.handle(std::nullopt, std::nullopt).status, paramErr);
  EXPECT_EQ(handler.handle(text("text"), std::nullopt).status, paramErr);
  EXPECT_EQ(handler.handle(AppleEventDescriptor::list({request()}), std::nullopt).status, paramErr);
}

TEST(RPCHandlerTest, WithoutAHandlerTheEventIsNotHandled) {
  RPCHandler handler;
  EXPECT_FALSE(handler.isSet());
  EXPECT_EQ(handler.handle(request(), std::nullopt).status, errAEEventNotHandled);
  handler.set([](const AppleEvent&, AppleEvent&) {});
  EXPECT_TRUE(handler.isSet());
  handler.set(nullptr);
  EXPECT_FALSE(handler.isSet());
  EXPECT_EQ(handler.handle(request(), std::nullopt).status, errAEEventNotHandled);
}

TEST(RPCHandlerTest, ItsExceptionIsAFailure) {
  RPCHandler handler;
  handler.set([](const AppleEvent&, AppleEvent&) { throw std::runtime_error("failed"); });
  EXPECT_EQ(handler.handle(request(), std::nullopt).status, errAEEventFailed);
  handler.set([](const AppleEvent&, AppleEvent&) { throw 42; });
  EXPECT_EQ(handler.handle(request(), std::nullopt).status, errAEEventFailed);
}

TEST(RPCHandlerTest, ItsResultIsTextThatCanBeSentOrNone) {
  EXPECT_EQ(answerTo(text("\u263A")).result, "\u263A");
  EXPECT_EQ(answerTo(AppleEventDescriptor::list()).status, noErr);
  EXPECT_EQ(answerTo(AppleEventDescriptor::list()).result, "");
  for (const std::string& bad : {std::string("a\0b", 3), std::string("\xFF")}) {
    EXPECT_EQ(answerTo(text(bad)).status, errAEEventFailed);
    EXPECT_EQ(answerTo(text(bad)).result, "");
  }
}

}  // namespace
}  // namespace qbdkr
