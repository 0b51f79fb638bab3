#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/RPCEvent.h"

namespace qbdkr {
namespace {

using Items = std::vector<AppleEventDescriptor>;

AppleEventDescriptor text(std::string value = "text") {
  return AppleEventDescriptor::withString(std::move(value));
}

AppleEventDescriptor listOf(Items items = {}) {
  return AppleEventDescriptor::list(std::move(items));
}

AppleEventDescriptor identifier() {
  return AppleEventDescriptor::withBytes(typeApplicationBundleID, "com.Acme.Helper");
}

AppleEvent eventWith(AppleEventDescriptor directObject,
                     AppleEventDescriptor target = identifier()) {
  AppleEvent event(kCoreEventClass, kAECall, std::move(target), kAutoGenerateReturnID,
                   kAnyTransactionID);
  event.setParamDescriptor(keyDirectObject, std::move(directObject));
  return event;
}

bool isSentWith(Items arguments) {
  return isRPCEvent(eventWith(listOf({text(), text(), listOf(std::move(arguments))})));
}

TEST(RPCEvent, IsAClassNameAMethodNameAndAListOfTexts) {
  EXPECT_TRUE(isSentWith({}));
  EXPECT_TRUE(isSentWith({text("")}));
  EXPECT_TRUE(isSentWith({text(), text("\u263A")}));
}

TEST(RPCEvent, IsNothingElse) {
  EXPECT_FALSE(isRPCEvent(AppleEvent()));
  EXPECT_FALSE(isRPCEvent(eventWith({})));
  EXPECT_FALSE(isRPCEvent(eventWith(text())));
  EXPECT_FALSE(isRPCEvent(eventWith(listOf({text(), text()}))));
  EXPECT_FALSE(isRPCEvent(eventWith(listOf({text(), text(), listOf(), text()}))));
  EXPECT_FALSE(isRPCEvent(eventWith(listOf({text(), text(), text()}))));
  EXPECT_FALSE(isRPCEvent(eventWith(listOf({listOf(), text(), listOf()}))));
  EXPECT_FALSE(isRPCEvent(eventWith(listOf({text(), listOf(), listOf()}))));
  EXPECT_FALSE(isSentWith({listOf({text()})}));
  EXPECT_FALSE(isSentWith({AppleEventDescriptor()}));
  EXPECT_FALSE(isSentWith({text(), identifier()}));
}

TEST(RPCEvent, IsOfOneClassAndIDOnly) {
  EXPECT_TRUE(isRPCEvent(kCoreEventClass, kAECall));
  AppleEvent quit(kCoreEventClass, fourCharCode("quit"), identifier(), kAutoGenerateReturnID,
                  kAnyTransactionID);
  quit.setParamDescriptor(keyDirectObject, listOf({text(), text(), listOf()}));
  EXPECT_FALSE(isRPCEvent(quit));
  EXPECT_FALSE(isRPCEvent(fourCharCode("misc"), kAECall));
}

TEST(RPCEvent, IsAddressedByBundleIdentifier) {
  const auto object = listOf({text(), text(), listOf()});
  EXPECT_FALSE(isRPCEvent(eventWith(
      object, AppleEventDescriptor::withBytes(typeApplicationBundleID, std::string("a\0b", 3)))));
  EXPECT_TRUE(isRPCEvent(eventWith(object)));
  EXPECT_FALSE(isRPCEvent(eventWith(object, {})));
  EXPECT_FALSE(isRPCEvent(eventWith(object, text("com.Acme.Helper"))));
}

TEST(RPCEvent, TextsThatAreNotUTF8OrHoldANULAreNone) {
  for (const std::string_view bad : {std::string_view("\0", 1), std::string_view("a\0b", 3),
                                     std::string_view("\xFF"), std::string_view("\xED\xA0\x80")}) {
    EXPECT_FALSE(isSendable(bad));
    const auto badText = text(std::string(bad));
    EXPECT_FALSE(isSentWith({text(), badText}));
    EXPECT_FALSE(isRPCEvent(eventWith(listOf({badText, text(), listOf()}))));
    EXPECT_FALSE(isRPCEvent(eventWith(listOf({text(), badText, listOf()}))));
  }
  EXPECT_TRUE(isSendable(""));
  EXPECT_TRUE(isSendable("a\u00E9\U0001F600"));
}

TEST(RPCEvent, NamesHaveABound) {
  const auto longest = text(std::string(longestEventName, 'a'));
  const auto longer = text(std::string(longestEventName + 1, 'a'));
  EXPECT_TRUE(isRPCEvent(eventWith(listOf({longest, longest, listOf()}))));
  EXPECT_FALSE(isRPCEvent(eventWith(listOf({longer, text(), listOf()}))));
  EXPECT_FALSE(isRPCEvent(eventWith(listOf({text(), longer, listOf()}))));
  EXPECT_TRUE(isSentWith({longer}));
}

TEST(RPCEvent, TheNumberOfTextsHasABound) {
  EXPECT_TRUE(isSentWith(Items(mostEventTexts, text(""))));
  EXPECT_FALSE(isSentWith(Items(mostEventTexts + 1, text(""))));
}

TEST(RPCEvent, TheContentOfAllTextsHasABound) {
  const std::size_t room = mostEventContent / 2 - 8;
  EXPECT_TRUE(isSentWith(Items(2, text(std::string(room, 'a')))));
  EXPECT_FALSE(isSentWith({text(std::string(room, 'a')), text(std::string(room + 1, 'a'))}));
}

TEST(RPCEvent, WhatComesInMayHaveAnyForm) {
  for (const AppleEventDescriptor& object :
       {AppleEventDescriptor(), text(), identifier(), listOf(), listOf({text()}),
        listOf({{}, {}, {}}), listOf({identifier(), listOf(), text()}),
        listOf({text(), text(), listOf({text(), {}, identifier()}), text()})}) {
    EXPECT_TRUE(isWithinBounds(object));
  }
}

TEST(RPCEvent, WhatComesInHasTheBoundsOfWhatIsSent) {
  const auto longest = text(std::string(longestEventName, 'a'));
  const auto longer = text(std::string(longestEventName + 1, 'a'));
  EXPECT_TRUE(isWithinBounds(listOf({longest, longest, listOf({longer})})));
  EXPECT_FALSE(isWithinBounds(listOf({longer})));
  EXPECT_FALSE(isWithinBounds(listOf({text(), longer})));
  const auto withTexts = [](Items texts) {
    return isWithinBounds(listOf({text(), text(), listOf(std::move(texts))}));
  };
  EXPECT_TRUE(withTexts(Items(mostEventTexts)));
  EXPECT_FALSE(withTexts(Items(mostEventTexts + 1)));
  const std::size_t room = mostEventContent / 2 - 8;
  EXPECT_TRUE(withTexts(Items(2, text(std::string(room, 'a')))));
  EXPECT_FALSE(withTexts({text(std::string(room, 'a')), text(std::string(room + 1, 'a'))}));
}

TEST(RPCEvent, TextThatComesInIsTextThatCanBeSent) {
  const auto bad = text(std::string("a\0b", 3));
  EXPECT_FALSE(isWithinBounds(listOf({bad})));
  EXPECT_FALSE(isWithinBounds(listOf({{}, bad})));
  EXPECT_FALSE(isWithinBounds(listOf({text(), text(), listOf({text(), bad})})));
}

TEST(RPCEvent, WhatWasTooMuchOnceStaysTooMuch) {
  EventAllowance allowance;
  EXPECT_TRUE(allowance.take("a"));
  EXPECT_FALSE(allowance.take(std::string(mostEventContent, 'a')));
  EXPECT_FALSE(allowance.take(""));
}

}  // namespace
}  // namespace qbdkr
