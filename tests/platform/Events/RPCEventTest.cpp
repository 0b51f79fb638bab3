#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Events/RPCEvent.h"

namespace qbdkr {
namespace {

using Texts = std::vector<std::string>;

bool isSentWith(Texts arguments) {
  return isSendable(RPCEvent{"Class", "method", std::move(arguments)});
}

bool isSentWithNames(const std::string& className, const std::string& methodName) {
  return isSendable(RPCEvent{className, methodName, {}});
}

TEST(RPCEventTest, AnyTextsCanBeSent) {
  EXPECT_TRUE(isSentWith({}));
  EXPECT_TRUE(isSentWith({""}));
  EXPECT_TRUE(isSentWith({"text", "\u263A"}));
  EXPECT_TRUE(isSentWithNames("", ""));
  EXPECT_TRUE(isSendable(RPCEvent()));
}

TEST(RPCEventTest, TextsThatAreNotUTF8OrHoldANULCannot) {
  for (const std::string_view bad : {std::string_view("\0", 1), std::string_view("a\0b", 3),
                                     std::string_view("\xFF"), std::string_view("\xED\xA0\x80")}) {
    EXPECT_FALSE(isSendable(bad));
    EXPECT_FALSE(isSendableResult(bad));
    const std::string text(bad);
    EXPECT_FALSE(isSentWith({"text", text}));
    EXPECT_FALSE(isSentWithNames(text, "method"));
    EXPECT_FALSE(isSentWithNames("Class", text));
  }
  EXPECT_TRUE(isSendable(""));
  EXPECT_TRUE(isSendable("a\u00E9\U0001F600"));
}

TEST(RPCEventTest, NamesHaveABound) {
  const std::string longest(longestEventName, 'a');
  const std::string longer(longestEventName + 1, 'a');
  EXPECT_TRUE(isSentWithNames(longest, longest));
  EXPECT_FALSE(isSentWithNames(longer, "method"));
  EXPECT_FALSE(isSentWithNames("Class", longer));
  EXPECT_TRUE(isSentWith({longer}));
}

TEST(RPCEventTest, TheNumberOfArgumentsHasABound) {
  EXPECT_TRUE(isSentWith(Texts(mostEventTexts)));
  EXPECT_FALSE(isSentWith(Texts(mostEventTexts + 1)));
}

TEST(RPCEventTest, TheContentOfAllArgumentsHasABound) {
  const std::size_t room = mostEventContent / 2 - 8;
  EXPECT_TRUE(isSentWith(Texts(2, std::string(room, 'a'))));
  EXPECT_FALSE(isSentWith({std::string(room, 'a'), std::string(room + 1, 'a')}));
}

TEST(RPCEventTest, AResultHasABound) {
  EXPECT_TRUE(isSendableResult(std::string(mostEventContent, 'a')));
  EXPECT_FALSE(isSendableResult(std::string(mostEventContent + 1, 'a')));
}

TEST(RPCEventTest, WhatWasTooMuchOnceStaysTooMuch) {
  EventAllowance allowance;
  EXPECT_TRUE(allowance.takeArgument("a"));
  EXPECT_FALSE(allowance.takeArgument(std::string(mostEventContent, 'a')));
  EXPECT_FALSE(allowance.takeArgument(""));
}

TEST(RPCEventTest, AllowanceTellsWhatAnEventTakesUp) {
  EventAllowance allowance;
  EXPECT_EQ(allowance.used(), 0U);
  EXPECT_TRUE(allowance.takeName("Class"));
  EXPECT_TRUE(allowance.takeName("method:"));
  EXPECT_EQ(allowance.used(), 12U);
  EXPECT_TRUE(allowance.takeArgument("text"));
  EXPECT_TRUE(allowance.takeArgument(""));
  EXPECT_EQ(allowance.used(), 12U + 4 + 2 * 8);
}

}  // namespace
}  // namespace qbdkr
