#include "support/TranscriptFile.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "support/Environment.h"

namespace qbdkr::test {
namespace {

bool holdsAll(const std::string& line, const std::vector<std::string>& parts) {
  return std::ranges::all_of(
      parts, [&](const std::string& part) { return line.find(part) != std::string::npos; });
}

}  // namespace

TranscriptFile::TranscriptFile(std::filesystem::path path)
    : path_(std::move(path)), watch_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  writeFile(path_, "");
  if (inotify_add_watch(watch_.get(), path_.c_str(), IN_MODIFY) < 0) {
    throw std::runtime_error("no watch on " + path_.string());
  }
}

const std::vector<std::string>& TranscriptFile::lines() {
  std::ifstream file(path_, std::ios::binary);
  file.seekg(static_cast<std::streamoff>(read_));
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  std::size_t start = 0;
  for (auto end = text.find('\n'); end != std::string::npos; end = text.find('\n', start)) {
    lines_.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  read_ += start;
  return lines_;
}

std::size_t TranscriptFile::count(const std::string& part) {
  return static_cast<std::size_t>(std::ranges::count_if(
      lines(), [&](const std::string& line) { return line.find(part) != std::string::npos; }));
}

void TranscriptFile::waitUntil(const std::function<bool()>& holds, const std::string& what,
                               std::chrono::milliseconds time) {
  const auto deadline = std::chrono::steady_clock::now() + time;
  while (!holds()) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd event{watch_.get(), POLLIN, 0};
    if (left.count() <= 0 || ::poll(&event, 1, static_cast<int>(left.count())) == 0) {
      std::string text = "not in time: " + what + "\n--- transcript\n";
      for (const auto& line : lines_) text += line.substr(0, 300) + '\n';
      throw std::runtime_error(text);
    }
    std::array<char, 4096> buffer{};
    while (::read(watch_.get(), buffer.data(), buffer.size()) > 0) {
    }
  }
}

std::string TranscriptFile::waitFor(const std::vector<std::string>& parts, std::size_t from,
                                    std::chrono::milliseconds time) {
  std::string found;
  std::string what = "a line with";
  for (const auto& part : parts) what += " \"" + part + '"';
  std::size_t next = from;
  const auto find = [&] {
    const auto& all = lines();
    for (; next < all.size(); ++next) {
      if (!holdsAll(all[next], parts)) continue;
      found = all[next];
      return true;
    }
    return false;
  };
  waitUntil(find, what, time);
  return found;
}

void TranscriptFile::waitForCount(const std::string& part, std::size_t wanted,
                                  std::chrono::milliseconds time) {
  waitUntil([&] { return count(part) >= wanted; }, std::to_string(wanted) + " lines with " + part,
            time);
}

}  // namespace qbdkr::test
