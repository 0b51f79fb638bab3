#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <ClientComm/Bundle.h>

#include "Platform/Events/AppleEvents/RPCAppleEvent.h"

namespace qbdkr {
namespace {

using Items = std::vector<AppleEventDescriptor>;

AppleEventDescriptor text(std::string value = "text") {
  return AppleEventDescriptor::withString(std::move(value));
}

AppleEventDescriptor number() {
  return AppleEventDescriptor::withBytes(fourCharCode("long"), "1234");
}

AppleEventDescriptor listOf(Items items = {}) {
  return AppleEventDescriptor::list(std::move(items));
}

AppleEvent eventWith(std::optional<AppleEventDescriptor> directObject) {
  AppleEvent event;
  if (directObject) event.setParamDescriptor(keyDirectObject, *std::move(directObject));
  return event;
}

AppleEvent eventFrom(AppleEventDescriptor address) {
  AppleEvent event;
  event.setAttributeDescriptor(keyAddressAttr, std::move(address));
  return event;
}

AppleEventDescriptor process(std::int32_t processID) {
  std::string bytes(sizeof processID, '\0');
  std::memcpy(bytes.data(), &processID, sizeof processID);
  return AppleEventDescriptor::withBytes(typeKernelProcessID, bytes);
}

TEST(RPCAppleEvent, IsSentAsThePeersExpect) {
  EXPECT_EQ(postOptions.mode, 1);
  EXPECT_EQ(postOptions.timeout, -1);
  EXPECT_EQ(askOptions.mode, 3);
  EXPECT_EQ(askOptions.timeout, -2);
}

TEST(RPCAppleEvent, IsMadeOfAnRPCEventAndItsTarget) {
  const AppleEvent event =
      appleEventOf(RPCTarget{"com.Acme", "/not/sent"}, {"Class", "method::", {"a", "", "\u263A"}});
  EXPECT_EQ(event.eventClass(), kCoreEventClass);
  EXPECT_EQ(event.eventID(), kAECall);
  EXPECT_EQ(event.returnID(), kAutoGenerateReturnID);
  EXPECT_EQ(event.transactionID(), kAnyTransactionID);
  EXPECT_EQ(event.target(), AppleEventDescriptor::withBytes(typeApplicationBundleID, "com.Acme"));
  ASSERT_NE(event.paramDescriptor(keyDirectObject), nullptr);
  EXPECT_EQ(
      *event.paramDescriptor(keyDirectObject),
      listOf({text("Class"), text("method::"), listOf({text("a"), text(""), text("\u263A")})}));
}

TEST(RPCAppleEvent, NamesThatAreAbsentAreMadeEmpty) {
  EXPECT_EQ(*appleEventOf({}, {}).paramDescriptor(keyDirectObject),
            listOf({text(""), text(""), listOf()}));
}

TEST(RPCAppleEvent, IsReadBackAsItWasMade) {
  for (const RPCEvent& event :
       {RPCEvent{"Class", "method", {}}, RPCEvent{"", "", {""}}, RPCEvent{"C", "m:", {"a", "b"}}}) {
    EXPECT_EQ(rpcEventOf(appleEventOf({}, event)), event);
  }
}

TEST(RPCAppleEvent, NamesThatAreMissingOrNotTextAreAbsent) {
  for (const std::optional<AppleEventDescriptor>& object :
       std::vector<std::optional<AppleEventDescriptor>>{
           std::nullopt, AppleEventDescriptor(), text(), number(), listOf(), listOf({{}, {}, {}}),
           listOf({number(), listOf(), text()})}) {
    EXPECT_EQ(rpcEventOf(eventWith(object)), RPCEvent());
  }
  EXPECT_EQ(rpcEventOf(eventWith(listOf({text()}))), (RPCEvent{"text", std::nullopt, {}}));
  EXPECT_EQ(rpcEventOf(eventWith(listOf({{}, text()}))), (RPCEvent{std::nullopt, "text", {}}));
}

TEST(RPCAppleEvent, WhatStandsBehindTheArgumentsIsNotRead) {
  EXPECT_EQ(rpcEventOf(eventWith(listOf({text(), text(), listOf({text("a")}), number()}))),
            (RPCEvent{"text", "text", {"a"}}));
}

TEST(RPCAppleEvent, AnArgumentThatIsNoTextMakesItNone) {
  for (const AppleEventDescriptor& argument :
       {AppleEventDescriptor(), number(), listOf({text()})}) {
    EXPECT_EQ(rpcEventOf(eventWith(listOf({text(), text(), listOf({text(), argument})}))),
              std::nullopt);
  }
}

TEST(RPCAppleEvent, TheSenderIsTheApplicationOfTheProcessAtTheAddress) {
  const auto own = Bundle::main().infoString(kCFBundleIdentifierKey);
  EXPECT_EQ(senderOf(eventFrom(process(getpid()))), own);
  EXPECT_EQ(senderOf(eventFrom(*process(getpid()).coerceToDescriptorType(typeProcessSerialNumber))),
            own);
  EXPECT_EQ(senderOf(AppleEvent()), std::nullopt);
  EXPECT_EQ(senderOf(eventFrom(AppleEventDescriptor())), std::nullopt);
  EXPECT_EQ(senderOf(eventFrom(text())), std::nullopt);
  EXPECT_EQ(senderOf(eventFrom(process(0))), std::nullopt);
  EXPECT_EQ(senderOf(eventFrom(AppleEventDescriptor::withBytes(typeProcessSerialNumber, "short"))),
            std::nullopt);
}

TEST(RPCAppleEvent, TheResultIsTheDirectObjectOfTheReply) {
  AppleEvent reply;
  EXPECT_EQ(resultOf(reply), std::nullopt);
  setResult(reply, "result");
  EXPECT_EQ(*reply.paramDescriptor(keyDirectObject), text("result"));
  EXPECT_EQ(resultOf(reply), "result");
  reply.setParamDescriptor(keyDirectObject, number());
  EXPECT_EQ(resultOf(reply), std::nullopt);
}

}  // namespace
}  // namespace qbdkr
