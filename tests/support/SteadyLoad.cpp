#include "support/SteadyLoad.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <string_view>
#include <thread>
#include <utility>

#include <ClientComm/QBHPAppleEventSender.h>

#include "support/AppendedLine.h"
#include "support/Patience.h"

namespace qbdkr::test {
namespace {

using Clock = std::chrono::steady_clock;
using Numbers = std::vector<unsigned long>;

std::atomic<bool> ends{false};

class Load {
 public:
  Load(std::string target, std::string file, unsigned long postsPerAnswer)
      : target_(std::move(target)), file_(std::move(file)), postsPerAnswer_(postsPerAnswer) {}

  void run(std::chrono::microseconds interval) {
    for (auto next = Clock::now(); !ends; next = std::max(next + interval, Clock::now())) {
      std::this_thread::sleep_until(next);
      step();
    }
    flush();
  }

 private:
  void step() {
    constexpr std::size_t mostPosts = 16;
    const bool asks = number_ % (postsPerAnswer_ + 1) == 0 || server_.empty();
    if (asks) {
      ask();
    } else {
      post();
    }
    if (posts_.size() >= mostPosts) flush();
  }

  void ask() {
    const std::string number = std::to_string(++number_);
    const std::array<std::string_view, 1> arguments{number};
    String answer;
    const auto status =
        QBHPAppleEventSender::share().sendEvnet(target_, "Probe", "who:", arguments, answer);
    const auto time =
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now().time_since_epoch());
    const std::string server = status == noErr ? answer.value_or("") : "";
    if (server != server_) posts_.clear();  // the process that had them may be gone
    server_ = server;
    if (status != noErr) return failed(number, status);
    appendLine(file_, "answered " + number + ' ' + std::to_string(time.count()) + ' ' + server);
  }

  void post() {
    const std::string number = std::to_string(++number_);
    const std::array<std::string_view, 1> arguments{number};
    const auto status =
        QBHPAppleEventSender::share().sendEvnet(target_, "Probe", "note:", arguments);
    if (status != noErr) return failed(number, status);
    posts_.push_back(number_);
  }

  void flush() {
    const Numbers posts = std::exchange(posts_, {});
    const std::string before = server_;
    const auto status = QBHPAppleEventSender::share().flush(Clock::now() + patience);
    ask();
    if (status != noErr) return failed("flush", status);
    if (server_ != before || posts.empty()) return;
    std::string line = "taken";
    for (const auto number : posts) line += ' ' + std::to_string(number);
    appendLine(file_, line);
  }

  void failed(const std::string& number, OSErr status) const {
    appendLine(file_, "failed " + number + ' ' + std::to_string(status));
  }

  std::string target_;
  std::string file_;
  unsigned long postsPerAnswer_;
  unsigned long number_ = 0;
  std::string server_;  // the answer of the latest request; empty if that failed
  Numbers posts_;       // of which that process has been sure to be there
};

}  // namespace

std::string load(const std::vector<std::string>& words) {
  ends = false;
  Load(words.at(0), words.at(1), std::stoul(words.at(3)))
      .run(std::chrono::microseconds(std::stoul(words.at(2))));
  return "ended";
}

void endLoad() { ends = true; }

}  // namespace qbdkr::test
