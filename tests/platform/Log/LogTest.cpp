#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <ClientComm/Log.h>

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
  EXPECT_EQ(captured.lines(), Lines{R"(a\nb\tc\rd\x1b[1me\x00f\x7fg)"});
}

TEST(Log, TextOfEveryScriptIsKept) {
  CapturedLog captured;
  log("Gr\u00FC\u00DFe \u263A \U0001F600");
  EXPECT_EQ(captured.lines(), Lines{"Gr\u00FC\u00DFe \u263A \U0001F600"});
}

TEST(Log, ALineOf16KiBIsKeptAndALongerOneIsCut) {
  constexpr std::size_t longest = std::size_t{16} * 1024;
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

// Replaces standard error while it lives. Only the test reads it.
class UnreadError {
 public:
  // Owns both ends.
  UnreadError(int readEnd, int writeEnd)
      : readEnd_(readEnd), before_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
    dup2(writeEnd, STDERR_FILENO);
    close(writeEnd);
    fcntl(readEnd_, F_SETFL, O_NONBLOCK);
    // A written line ends the dropping that an earlier test began.
    log("ready");
    (void)drain();
  }
  UnreadError(const UnreadError&) = delete;
  UnreadError& operator=(const UnreadError&) = delete;
  ~UnreadError() {
    dup2(before_, STDERR_FILENO);
    close(before_);
    close(readEnd_);
  }

  static UnreadError pipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    fcntl(ends[1], F_SETPIPE_SZ, 4096);
    return {ends[0], ends[1]};
  }

  static UnreadError socket() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
      throw std::runtime_error("no socket");
    }
    return {ends[0], ends[1]};
  }

  static UnreadError terminal() {
    const int controller = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (controller < 0 || grantpt(controller) != 0 || unlockpt(controller) != 0) {
      throw std::runtime_error("no terminal");
    }
    std::array<char, 64> name{};
    ptsname_r(controller, name.data(), name.size());
    return {controller, open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC)};
  }

  // Fills standard error up.
  void fill() const {
    const int flags = fcntl(STDERR_FILENO, F_GETFL);
    fcntl(STDERR_FILENO, F_SETFL, flags | O_NONBLOCK);
    // A terminal makes some more room for a while.
    pollfd room{STDERR_FILENO, POLLOUT, 0};
    do {
      for (const std::size_t size : {std::size_t{4096}, std::size_t{1}}) {
        const std::string filler(size, '-');
        while (write(STDERR_FILENO, filler.data(), filler.size()) > 0) {
        }
      }
    } while (::poll(&room, 1, 100) > 0);
    fcntl(STDERR_FILENO, F_SETFL, flags);
  }

  // Returns all that was written so far, and waits a moment for more.
  [[nodiscard]] std::string drain() const {
    std::string text;
    std::array<char, 4096> buffer{};
    for (;;) {
      const auto size = read(readEnd_, buffer.data(), buffer.size());
      pollfd more{readEnd_, POLLIN, 0};
      if (size <= 0 && ::poll(&more, 1, 100) <= 0) return text;
      if (size > 0) text.append(buffer.data(), static_cast<std::size_t>(size));
    }
  }

 private:
  int readEnd_;
  int before_;
};

// Tells whether a call returns while nothing is read. Reads afterwards, to end the call anyway.
bool comesBack(const UnreadError& error, const std::function<void()>& call) {
  const auto done = std::async(std::launch::async, call);
  const bool inTime = done.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
  while (done.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
    (void)error.drain();
  }
  return inTime;
}

// Returns the output around a line without room and a line once there is room again.
std::string linesAround(const UnreadError& error) {
  error.fill();
  EXPECT_TRUE(comesBack(error, [] { log("lost"); }));
  std::string text;
  for (int i = 0; i < 100 && text.find("room again") == std::string::npos; ++i) {
    text += error.drain();
    log("room again");
  }
  EXPECT_NE(text.find("room again"), std::string::npos);
  return text;
}

TEST(Log, LineForAPipeThatIsNotReadIsDropped) {
  EXPECT_EQ(linesAround(UnreadError::pipe()).find("lost"), std::string::npos);
}

TEST(Log, LineForASocketThatIsNotReadIsDropped) {
  EXPECT_EQ(linesAround(UnreadError::socket()).find("lost"), std::string::npos);
}

TEST(Log, LineForATerminalThatIsNotReadHoldsUpNothing) {
  // On a busy machine the terminal may make room for the line.
  EXPECT_FALSE(linesAround(UnreadError::terminal()).empty());
}

TEST(Log, LineWithoutRoomIsDroppedWithoutDescriptorsAsWell) {
  const auto error = UnreadError::terminal();
  error.fill();
  EXPECT_TRUE(comesBack(error, [] {
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{0, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    log("lost");
    setrlimit(RLIMIT_NOFILE, &before);
  }));
}

TEST(Log, OnlyTheFirstLineWithoutRoomWaits) {
  const auto error = UnreadError::pipe();
  error.fill();
  // If each waited 0.2 s, this would take too long.
  EXPECT_TRUE(comesBack(error, [] {
    for (int i = 0; i < 2000; ++i) log("lost");
  }));
}

TEST(Log, LineWaitsAMomentForRoom) {
  const auto error = UnreadError::pipe();
  // On a busy machine the wait may end before this thread reads.
  bool arrived = false;
  for (int attempt = 0; attempt < 100 && !arrived; ++attempt) {
    error.fill();
    std::promise<void> begun;
    const auto done = std::async(std::launch::async, [&begun] {
      begun.set_value();
      log("in time");
    });
    begun.get_future().wait();
    done.wait_for(std::chrono::milliseconds(20));
    std::string text = error.drain();
    done.wait();
    text += error.drain();
    arrived = text.find("in time") != std::string::npos;
    log("room");
    (void)error.drain();
  }
  EXPECT_TRUE(arrived);
}

TEST(Log, LineAfterACutOneBeginsANewLine) {
  const auto error = UnreadError::pipe();
  EXPECT_TRUE(comesBack(error, [] { log(std::string(8000, 'x')); }));
  EXPECT_EQ(error.drain().back(), 'x');
  log("whole");
  const std::string next = error.drain();
  EXPECT_EQ(next.front(), '\n');
  EXPECT_TRUE(next.ends_with("] whole\n")) << next;
  log("more");
  EXPECT_NE(error.drain().front(), '\n');
}

TEST(Log, HugeArgumentsCostNoMoreThanTheirLine) {
  // The size is a lie: the bytes after the first 16 KiB are never read.
  const std::string start(17'000, 'h');
  const volatile std::size_t size = std::size_t{1} << 62U;
  CapturedLog captured;
  log("%@ %@", {std::string_view(start.data(), size), "unused"});
  log("%@", {std::string_view(start.data(), size)});
  const std::string line = std::string(std::size_t{16} * 1024, 'h') + "...";
  EXPECT_EQ(captured.lines(), (Lines{line, line}));
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
