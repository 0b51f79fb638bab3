#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Log.h"
#include "support/CapturedLog.h"

namespace qbdkr {
namespace {

using test::CapturedLog;
using Lines = std::vector<std::string>;
using namespace std::string_view_literals;

TEST(Log, WritesOneLineWithTimeAndProcess) {
  CapturedLog captured;
  log("a line");
  const auto lines = captured.rawLines();
  ASSERT_EQ(lines.size(), 1U);
  // Each 0 stands for a digit.
  const std::string form = "0000-00-00 00:00:00.000 ";
  const std::string rest =
      std::string(program_invocation_short_name) + '[' + std::to_string(getpid()) + "] a line";
  ASSERT_EQ(lines[0].size(), form.size() + rest.size()) << lines[0];
  EXPECT_TRUE(std::equal(form.begin(), form.end(), lines[0].begin(), [](char f, char c) {
    return f == '0' ? c >= '0' && c <= '9' : f == c;
  })) << lines[0];
  EXPECT_EQ(lines[0].substr(form.size()), rest);
}

TEST(Log, KeepsTrailingBlanksAndEmptyLines) {
  CapturedLog captured;
  log("a b ");
  log("");
  EXPECT_EQ(captured.lines(), (Lines{"a b ", ""}));
}

TEST(Log, ControlCharactersAreEscaped) {
  CapturedLog captured;
  log("a\nb\tc\rd\033[1me\0f\177g"sv);
  EXPECT_EQ(captured.lines(), Lines{R"(a\012b\011c\015d\033[1me\000f\177g)"});
}

TEST(Log, TextOfEveryScriptIsKept) {
  CapturedLog captured;
  log("Gr\u00FC\u00DFe \u263A \U0001F600");
  EXPECT_EQ(captured.lines(), Lines{"Gr\u00FC\u00DFe \u263A \U0001F600"});
}

TEST(Log, ALineOf16KiBIsKeptAndALongerOneIsCut) {
  constexpr std::size_t longest = 16 * 1024;
  CapturedLog captured;
  log(std::string(longest, 'x'));
  log(std::string(longest + 1, 'y'));
  log(std::string(1'000'000, 'z'));
  const auto lines = captured.lines();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0], std::string(longest, 'x'));
  EXPECT_EQ(lines[1], std::string(longest, 'y') + "...");
  EXPECT_EQ(lines[2], std::string(longest, 'z') + "...");
}

TEST(Log, FormatsTakeTheArgumentsInOrder) {
  CapturedLog captured;
  log("%@ %@ %@ ", {"start:prodeuctVersion:", "4711", "3.1"});
  log("result %d isHelperAlive %d", {"-600", "1"});
  log("%@%@", {"a", "b"});
  EXPECT_EQ(captured.lines(),
            (Lines{"start:prodeuctVersion: 4711 3.1 ", "result -600 isHelperAlive 1", "ab"}));
}

TEST(Log, AbsentArgumentsPrintAsNullAndEmptyOnesAsNothing) {
  CapturedLog captured;
  log("%@|%@|", {std::nullopt, ""});
  EXPECT_EQ(captured.lines(), Lines{"(null)||"});
}

TEST(Log, ArgumentsAreNotFormatsThemselves) {
  CapturedLog captured;
  log("%@ %@", {"%@ %d %s %n", "last"});
  log("100 %s %n %");
  EXPECT_EQ(captured.lines(), (Lines{"%@ %d %s %n last", "100 %s %n %"}));
}

TEST(Log, PlaceholdersWithoutAnArgumentStay) {
  CapturedLog captured;
  log("%@ and %@", {"one"});
  log("%", {"unused"});
  EXPECT_EQ(captured.lines(), (Lines{"one and %@", "%"}));
}

TEST(Log, ControlCharactersOfArgumentsAreEscaped) {
  CapturedLog captured;
  log("%@", {"first\n2026-01-01 00:00:00.000 forged[1] second"});
  EXPECT_EQ(captured.lines().size(), 1U);
}

TEST(Log, LinesOfSeveralThreadsDoNotMix) {
  CapturedLog captured;
  std::vector<std::thread> threads;
  for (char c = 'a'; c < 'e'; ++c) {
    threads.emplace_back([c] {
      for (int i = 0; i < 50; ++i) log(std::string(1000, c));
    });
  }
  for (std::thread& thread : threads) thread.join();
  const auto lines = captured.lines();
  EXPECT_EQ(lines.size(), 200U);
  for (const std::string& line : lines) {
    ASSERT_FALSE(line.empty());
    EXPECT_EQ(line, std::string(1000, line[0]));
  }
}

TEST(Log, AJournalThatIsNotThisStreamIsNotTakenForIt) {
  setenv("JOURNAL_STREAM", "1:1", 1);
  CapturedLog captured;
  log("still here");
  unsetenv("JOURNAL_STREAM");
  EXPECT_EQ(captured.lines(), Lines{"still here"});
}

}  // namespace
}  // namespace qbdkr
