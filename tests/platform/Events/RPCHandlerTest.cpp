#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "Platform/Events/RPCHandler.h"

namespace qbdkr {
namespace {

using Answer = RPCTransport::Answer;
using Result = std::optional<std::string>;

const RPCEvent event{"Class", "method:", {"text"}};
const Answer notHandled{errAEEventNotHandled, std::nullopt};
const Answer failed{errAEEventFailed, std::nullopt};

// Returns the sender's answer if the handler returns this result.
Answer answerTo(Result result) {
  RPCHandler handler;
  handler.set([&](const RPCEvent&, const Result&) { return std::move(result); });
  return handler.handle(event, std::nullopt);
}

TEST(RPCHandlerTest, GetsWhatCameInAndWhoSentIt) {
  RPCHandler handler;
  for (const Result& sender : {Result("com.Acme"), Result(), Result("")}) {
    bool called = false;
    handler.set([&](const RPCEvent& received, const Result& from) -> Result {
      called = true;
      EXPECT_EQ(received, event);
      EXPECT_EQ(from, sender);
      return std::nullopt;
    });
    EXPECT_EQ(handler.handle(event, sender), Answer());
    EXPECT_TRUE(called);
  }
}

TEST(RPCHandlerTest, JudgesNoNames) {
  RPCHandler handler;
  RPCEvent received = event;
  handler.set([&](const RPCEvent& given, const Result&) -> Result {
    received = given;
    return std::nullopt;
  });
  EXPECT_EQ(handler.handle(RPCEvent(), "com.Acme").status, noErr);
  EXPECT_EQ(received, RPCEvent());
}

TEST(RPCHandlerTest, WithoutAHandlerTheEventIsNotHandled) {
  RPCHandler handler;
  EXPECT_FALSE(handler.isSet());
  EXPECT_EQ(handler.handle(event, "com.Acme"), notHandled);
  handler.set([](const RPCEvent&, const Result&) { return Result(); });
  EXPECT_TRUE(handler.isSet());
  handler.set(nullptr);
  EXPECT_FALSE(handler.isSet());
  EXPECT_EQ(handler.handle(event, "com.Acme"), notHandled);
}

TEST(RPCHandlerTest, AHandlerThatGoesMayComeBack) {
  RPCHandler handler;
  bool isBack = false;
  std::shared_ptr<void> last(&handler, [&](void*) { isBack = handler.isSet(); });
  handler.set([held = std::move(last)](const RPCEvent&, const Result&) { return Result(); });
  handler.set([](const RPCEvent&, const Result&) { return Result(); });
  EXPECT_TRUE(isBack);
}

TEST(RPCHandlerTest, ItsExceptionIsAFailure) {
  RPCHandler handler;
  handler.set([](const RPCEvent&, const Result&) -> Result { throw std::runtime_error("failed"); });
  EXPECT_EQ(handler.handle(event, "com.Acme"), failed);
  handler.set([](const RPCEvent&, const Result&) -> Result { throw 42; });
  EXPECT_EQ(handler.handle(event, "com.Acme"), failed);
}

TEST(RPCHandlerTest, ItsResultIsTextThatCanBeSentOrNone) {
  EXPECT_EQ(answerTo("\u263A"), (Answer{noErr, "\u263A"}));
  EXPECT_EQ(answerTo(""), (Answer{noErr, ""}));
  EXPECT_EQ(answerTo(std::nullopt), Answer());
  const std::string longest(mostEventContent, 'a');
  EXPECT_EQ(answerTo(longest), (Answer{noErr, longest}));
  for (const std::string& bad : {std::string("a\0b", 3), std::string("\xFF"), longest + 'a'}) {
    EXPECT_EQ(answerTo(bad), failed);
  }
}

}  // namespace
}  // namespace qbdkr
