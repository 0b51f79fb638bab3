#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Platform/Events/DBus/DirectMessage.h"

namespace qbdkr::direct {
namespace {

const RPCEvent event{"Class", "method:with:", {"one", "", "drei \u00e4"}};

std::string callOf(const RPCEvent& what, bool expectsAnswer = true) {
  std::string bytes;
  EXPECT_TRUE(writeCall(bytes, 7, expectsAnswer, what));
  return bytes;
}

std::string resultOf(const std::string& text) {
  std::string bytes;
  writeResult(bytes, 9, text);
  return bytes;
}

// Tells that no beginning of a message is taken for the whole.
template <class Read>
void expectOnlyTheWholeIsRead(const std::string& bytes, Read read) {
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_FALSE(read(std::string_view(bytes).substr(0, size))) << size;
  }
  EXPECT_TRUE(read(bytes));
  EXPECT_FALSE(read(bytes + '\0'));
}

TEST(DirectMessageTest, CallIsReadAsItWasWritten) {
  const auto request = readRequest(callOf(event));
  ASSERT_TRUE(request);
  EXPECT_EQ(request->serial, 7U);
  EXPECT_TRUE(request->expectsAnswer);
  EXPECT_EQ(request->event, event);
  EXPECT_EQ(request->size, 5U + 12U + 3U + 7U + 3U * 8U);
}

TEST(DirectMessageTest, PostSaysThatNoAnswerIsExpected) {
  EXPECT_FALSE(readRequest(callOf(event, false))->expectsAnswer);
}

TEST(DirectMessageTest, AbsentNamesAreEmpty) {
  const auto request = readRequest(callOf({}));
  ASSERT_TRUE(request);
  EXPECT_EQ(request->event, (RPCEvent{"", "", {}}));
}

TEST(DirectMessageTest, QuestionHasNoEvent) {
  std::string bytes;
  writeFlush(bytes, 3);
  const auto request = readRequest(bytes);
  ASSERT_TRUE(request);
  EXPECT_EQ(request->serial, 3U);
  EXPECT_FALSE(request->event);
}

TEST(DirectMessageTest, ResultIsReadAsItWasWritten) {
  const std::string bytes = resultOf("a result");
  const auto answer = readAnswer(bytes);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->serial, 9U);
  EXPECT_EQ(answer->error, "");
  EXPECT_EQ(answer->result, "a result");
  EXPECT_EQ(sizeOfAnswer(std::string_view(bytes).substr(0, bytes.size() - 5)), bytes.size());
}

TEST(DirectMessageTest, ErrorIsReadByItsName) {
  std::string bytes;
  writeError(bytes, 9, "org.freedesktop.DBus.Error.Failed");
  const auto answer = readAnswer(bytes);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->error, "org.freedesktop.DBus.Error.Failed");
}

TEST(DirectMessageTest, BufferOfALongMessageServesAShortOne) {
  std::string bytes = callOf({"Class", "method", {std::string(5000, 'x')}});
  EXPECT_TRUE(writeCall(bytes, 7, true, event));
  EXPECT_EQ(bytes, callOf(event));
}

TEST(DirectMessageTest, BeginningIsNoMessage) {
  expectOnlyTheWholeIsRead(callOf(event), readRequest);
  expectOnlyTheWholeIsRead(resultOf("text"), readAnswer);
}

// The change may be to a text. All that counts is that nothing else is read than what stands there.
TEST(DirectMessageTest, NoChangedByteDoesHarm) {
  for (const std::string& good : {callOf(event), resultOf("text")}) {
    for (std::size_t i = 0; i < good.size(); ++i) {
      for (const char byte : {'\0', '\1', '\x7f', '\x80', '\xff'}) {
        std::string bytes = good;
        bytes[i] = byte;
        const auto request = readRequest(bytes);
        EXPECT_TRUE(!request || !request->event || isSendable(*request->event));
        const auto answer = readAnswer(bytes);
        EXPECT_TRUE(!answer || answer->result.size() < bytes.size());
        static_cast<void>(sizeOfAnswer(bytes));
      }
    }
  }
}

TEST(DirectMessageTest, AnswerIsNoRequestAndRequestIsNoAnswer) {
  EXPECT_FALSE(readRequest(resultOf("text")));
  EXPECT_FALSE(readAnswer(callOf(event)));
}

TEST(DirectMessageTest, TextThatIsNoUTF8IsRefused) {
  std::string bytes = callOf({"Class", "method", {"abcd"}});
  bytes.replace(bytes.find("abcd"), 4,
                "ab\xff"
                "d");
  EXPECT_FALSE(readRequest(bytes));
  bytes.replace(bytes.find("ab\xff"
                           "d"),
                4, std::string("ab\0d", 4));
  EXPECT_FALSE(readRequest(bytes));
}

TEST(DirectMessageTest, NoncharacterIsNotWritten) {
  std::string bytes;
  for (const std::string text :
       {"\uFDD0", "x\uFDEF", "\uFFFE", "\uFFFFx", "\U0001FFFE", "\U0010FFFF"})
    EXPECT_FALSE(writeCall(bytes, 1, true, {"Class", "method", {text}})) << text;
  for (const std::string text :
       {"\uFDCF", "\uFDF0", "\uFFFD", "\u1FFE", "\U0001FFFD", "\u00BF\u00BE",
        // These end as a noncharacter goes on, and another character follows.
        "\u5FFF\u6012", "\u07FF\u00E9", "\U0001F3FF\u200D"})
    EXPECT_TRUE(writeCall(bytes, 1, true, {"Class", "method", {text}})) << text;
}

TEST(DirectMessageTest, HugeSizesAreRefusedBeforeAnythingIsRead) {
  std::string bytes = resultOf("text");
  for (std::size_t i = 4; i < 8; ++i) bytes[i] = '\xff';  // the size of the body
  EXPECT_FALSE(sizeOfAnswer(bytes));
  bytes = callOf(event);
  for (std::size_t i = 12; i < 16; ++i) bytes[i] = '\xff';  // that of the header's fields
  EXPECT_FALSE(readRequest(bytes));
}

}  // namespace
}  // namespace qbdkr::direct
