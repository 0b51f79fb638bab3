#include "support/CapturedLog.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

namespace qbdkr::test {
namespace {

// Holds the longest logged line many times over, so that no writer waits.
constexpr int pipeSize = 1024 * 1024;

// Each 0 stands for a digit.
constexpr std::string_view timeForm = "0000-00-00 00:00:00.000 ";

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Removes "DATE TIME NAME[PROCESS] " from the front.
std::string withoutPrefix(const std::string& line) {
  const bool timed =
      line.size() >= timeForm.size() &&
      std::equal(timeForm.begin(), timeForm.end(), line.begin(),
                 [](char form, char c) { return form == '0' ? isDigit(c) : form == c; });
  if (!timed) return line;
  const auto open = line.find('[', timeForm.size());
  const auto close = std::min(line.find(']', timeForm.size()), line.size());
  if (open == std::string::npos || close < open + 2) return line;
  const std::string_view process = std::string_view(line).substr(open + 1, close - open - 1);
  if (!std::ranges::all_of(process, isDigit) || line.compare(close, 2, "] ") != 0) return line;
  return line.substr(close + 2);
}

}  // namespace

CapturedLog::CapturedLog() {
  std::array<int, 2> ends{};
  std::fflush(stderr);
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  fcntl(ends[1], F_SETPIPE_SZ, pipeSize);
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  before_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
  dup2(ends[1], STDERR_FILENO);
  close(ends[1]);
  read_ = ends[0];
}

CapturedLog::~CapturedLog() {
  std::fflush(stderr);
  dup2(before_, STDERR_FILENO);
  close(before_);
  close(read_);
}

void CapturedLog::drain() {
  std::array<char, 4096> buffer{};
  ssize_t got = 0;
  while ((got = ::read(read_, buffer.data(), buffer.size())) > 0) {
    text_.append(buffer.data(), static_cast<std::size_t>(got));
  }
}

std::vector<std::string> CapturedLog::rawLines() {
  drain();
  std::vector<std::string> lines;
  std::string_view rest = text_;
  while (!rest.empty()) {
    const auto end = std::min(rest.find('\n'), rest.size());
    lines.emplace_back(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return lines;
}

std::vector<std::string> CapturedLog::lines() {
  std::vector<std::string> lines = rawLines();
  std::ranges::transform(lines, lines.begin(), withoutPrefix);
  return lines;
}

bool CapturedLog::waitForLine(std::string_view line, std::chrono::milliseconds time) {
  const auto deadline = std::chrono::steady_clock::now() + time;
  for (;;) {
    const auto all = lines();
    if (std::ranges::find(all, line) != all.end()) return true;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    pollfd state{read_, POLLIN, 0};
    poll(&state, 1, static_cast<int>(left.count()));
  }
}

}  // namespace qbdkr::test
