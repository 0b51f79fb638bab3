#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <ClientComm/LogHandler.h>

#include "support/CapturedLog.h"

namespace qbdkr {
namespace {

using test::CapturedLog;
using Lines = std::vector<std::string>;

// Takes the handler off at the end of a test.
struct LogHandlerTest : testing::Test {
  ~LogHandlerTest() override { setLogHandler(nullptr); }
};

TEST_F(LogHandlerTest, GetsEachLineInPlaceOfTheSystemLog) {
  CapturedLog captured;
  Lines lines;
  setLogHandler([&](const LogLine& line) { lines.push_back(line.text()); });
  log("plain %@");
  log("%@ and %d", {"text", "7"});
  log(LogCategory::deployment, "helper version = %@", {publicArgument("2.0")});
  EXPECT_EQ(lines, (Lines{"plain %@", "text and 7", "helper version = 2.0"}));
  EXPECT_TRUE(captured.lines().empty());
}

TEST_F(LogHandlerTest, GetsLevelCategoryAndArguments) {
  LogLevel level{};
  LogCategory category{};
  std::vector<bool> isPrivate;
  setLogHandler([&](const LogLine& line) {
    level = line.level;
    category = line.category;
    for (const LogArgument& argument : line.arguments) isPrivate.push_back(argument.isPrivate);
  });
  log(LogLevel::error, LogCategory::bus, "%@ %@", {publicArgument("a"), privateArgument("b")});
  EXPECT_EQ(level, LogLevel::error);
  EXPECT_EQ(category, LogCategory::bus);
  EXPECT_EQ(isPrivate, (std::vector<bool>{false, true}));
}

TEST_F(LogHandlerTest, LinesOfTheApplicationAreOfTheirOwnCategoryAndNotPrivate) {
  std::string redacted;
  LogCategory category = LogCategory::bus;
  setLogHandler([&](const LogLine& line) {
    redacted = line.redactedText();
    category = line.category;
  });
  log("%@", {"mine"});
  EXPECT_EQ(redacted, "mine");
  EXPECT_EQ(category, LogCategory::application);
}

TEST_F(LogHandlerTest, RedactedTextHidesPrivateArgumentsAlone) {
  Lines lines;
  setLogHandler([&](const LogLine& line) { lines.push_back(line.redactedText()); });
  log(LogCategory::request, "%@ %@ %@ %@",
      {publicArgument("1001"), privateArgument("ann@example.com"), privateArgument(std::nullopt)});
  EXPECT_EQ(lines, Lines{"1001 <private> <private> %@"});
}

TEST_F(LogHandlerTest, TextIsEscapedAndCutAsInTheSystemLog) {
  Lines lines;
  setLogHandler([&](const LogLine& line) { lines.push_back(line.text()); });
  log("a\nb");
  log(std::string(20'000, 'x'));
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], R"(a\nb)");
  EXPECT_EQ(lines[1], std::string(16'384, 'x') + "...");
}

TEST_F(LogHandlerTest, LineOfTheHandlerItselfGoesToTheSystemLog) {
  CapturedLog captured;
  setLogHandler([](const LogLine& line) { log("seen: " + line.text()); });
  log("a line");
  log("another");
  EXPECT_EQ(captured.lines(), (Lines{"seen: a line", "seen: another"}));
}

TEST_F(LogHandlerTest, ExceptionsAreDroppedAndTheNextLineIsHandledAgain) {
  CapturedLog captured;
  int calls = 0;
  setLogHandler([&](const LogLine& /*line*/) {
    ++calls;
    throw std::runtime_error("no");
  });
  log("one");
  log("two");
  EXPECT_EQ(calls, 2);
  EXPECT_TRUE(captured.lines().empty());
}

TEST_F(LogHandlerTest, MayTakeItselfOff) {
  CapturedLog captured;
  Lines lines;
  setLogHandler([&](const LogLine& line) {
    setLogHandler(nullptr);
    lines.push_back(line.text());
  });
  log("one");
  log("two");
  EXPECT_EQ(lines, Lines{"one"});
  EXPECT_EQ(captured.lines(), Lines{"two"});
}

}  // namespace
}  // namespace qbdkr
