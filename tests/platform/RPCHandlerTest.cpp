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

RPCHandler::DirectObject object(std::optional<AppleEventDescriptor> value) {
  return [value = std::move(value)] { return value; };
}

RPCHandler::SenderOf sender(std::optional<AppleEventDescriptor> address,
                            std::optional<AppleEventDescriptor> bundleID = {}) {
  return [address = std::move(address), bundleID = std::move(bundleID)] {
    return RPCHandler::Sender{address, bundleID};
  };
}

const RPCHandler::DirectObject unreadable = object(std::nullopt);
const RPCHandler::SenderOf unknown = sender(std::nullopt);

// What the sender gets when the handler stores that as its result.
RPCHandler::Answer answerTo(AppleEventDescriptor result) {
  RPCHandler handler;
  handler.set([&](const AppleEvent&, AppleEvent& reply) {
    reply.setParamDescriptor(keyDirectObject, std::move(result));
  });
  return handler.handle(object(request()), unknown);
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
  const auto answer = handler.handle(object(request()), sender(address));
  EXPECT_TRUE(called);
  EXPECT_EQ(answer.status, noErr);
  EXPECT_EQ(answer.result, "");
}

TEST(RPCHandlerTest, GetsTheApplicationThatTheTransportKnows) {
  RPCHandler handler;
  const auto address = AppleEventDescriptor::withBytes(typeKernelProcessID, "1234");
  std::vector<std::optional<AppleEventDescriptor>> known;
  handler.set([&](const AppleEvent& event, AppleEvent&) {
    const auto* bundleID = event.attributeDescriptor(keySenderBundleIDAttr);
    known.push_back(bundleID == nullptr ? std::nullopt : std::optional(*bundleID));
    EXPECT_EQ(*event.attributeDescriptor(keyAddressAttr), address);
  });
  EXPECT_EQ(handler.handle(object(request()), sender(address)).status, noErr);
  EXPECT_EQ(handler.handle(object(request()), sender(address, text("com.Acme"))).status, noErr);
  EXPECT_EQ(handler.handle(object(request()), sender(address, AppleEventDescriptor())).status,
            noErr);
  EXPECT_EQ(known, (std::vector<std::optional<AppleEventDescriptor>>{std::nullopt, text("com.Acme"),
                                                                     AppleEventDescriptor()}));
}

TEST(RPCHandlerTest, LeavesOutTheAddressOfAnUnknownSender) {
  RPCHandler handler;
  handler.set([](const AppleEvent& event, AppleEvent& reply) {
    if (event.attributeDescriptor(keyAddressAttr) == nullptr) {
      reply.setParamDescriptor(keyDirectObject, text("without"));
    }
  });
  EXPECT_EQ(handler.handle(object(request()), unknown).result, "without");
}

TEST(RPCHandlerTest, IsNotCalledForWhatIsRefusedOrBeyondTheBounds) {
  RPCHandler handler;
  handler.set([](const AppleEvent&, AppleEvent&) { ADD_FAILURE() << "called"; });
  EXPECT_EQ(handler.handle(unreadable, unknown).status, paramErr);
  const auto tooLong = text(std::string(longestEventName + 1, 'a'));
  EXPECT_EQ(handler.handle(object(AppleEventDescriptor::list({tooLong})), unknown).status,
            paramErr);
}

TEST(RPCHandlerTest, JudgesNoForm) {
  for (const AppleEventDescriptor& form :
       {AppleEventDescriptor(), text("text"), AppleEventDescriptor::list(),
        AppleEventDescriptor::list({AppleEventDescriptor(), text("method")}),
        AppleEventDescriptor::list({request()})}) {
    RPCHandler handler;
    std::optional<AppleEventDescriptor> handed;
    handler.set([&](const AppleEvent& event, AppleEvent&) {
      handed = *event.paramDescriptor(keyDirectObject);
    });
    EXPECT_EQ(handler.handle(object(form), unknown).status, noErr);
    EXPECT_EQ(handed, form);
  }
}

TEST(RPCHandlerTest, WithoutAHandlerTheEventIsNotHandled) {
  RPCHandler handler;
  EXPECT_FALSE(handler.isSet());
  EXPECT_EQ(handler.handle(object(request()), unknown).status, errAEEventNotHandled);
  handler.set([](const AppleEvent&, AppleEvent&) {});
  EXPECT_TRUE(handler.isSet());
  handler.set(nullptr);
  EXPECT_FALSE(handler.isSet());
  EXPECT_EQ(handler.handle(object(request()), unknown).status, errAEEventNotHandled);
}

TEST(RPCHandlerTest, WhoSentWhatIsRefusedIsNotAsked) {
  RPCHandler handler;
  const auto read = []() -> std::optional<AppleEventDescriptor> {
    ADD_FAILURE() << "read";
    return std::nullopt;
  };
  const auto asked = [] {
    ADD_FAILURE() << "asked";
    return RPCHandler::Sender();
  };
  EXPECT_EQ(handler.handle(read, asked).status, errAEEventNotHandled);
  handler.set([](const AppleEvent&, AppleEvent&) {});
  EXPECT_EQ(handler.handle(unreadable, asked).status, paramErr);
}

TEST(RPCHandlerTest, WhatWouldBeRefusedIsKnownWithoutACall) {
  RPCHandler handler;
  EXPECT_EQ(handler.refusal(object(request())), errAEEventNotHandled);
  handler.set([](const AppleEvent&, AppleEvent&) { ADD_FAILURE() << "called"; });
  EXPECT_EQ(handler.refusal(object(request())), noErr);
  EXPECT_EQ(handler.refusal(unreadable), paramErr);
  const auto tooLong = text(std::string(longestEventName + 1, 'a'));
  EXPECT_EQ(handler.refusal(object(AppleEventDescriptor::list({tooLong}))), paramErr);
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
  EXPECT_EQ(handler.handle(object(request()), unknown).status, errAEEventFailed);
  handler.set([](const AppleEvent&, AppleEvent&) { throw 42; });
  EXPECT_EQ(handler.handle(object(request()), unknown).status, errAEEventFailed);
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
