#include "support/Sequence.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <random>
#include <thread>

#include "Platform/Events/RPCTransport.h"

namespace qbdkr::test {
namespace {

using Clock = std::chrono::steady_clock;

enum class Kind { all, small, lossy };

// How many of a thousand events go which way, each number with those before; the rest is started.
struct Mixture {
  unsigned largePosts;
  unsigned posts;
  unsigned asked;
};

Mixture mixtureOf(Kind kind) {
  switch (kind) {
    case Kind::all:
      return {1, 700, 900};
    case Kind::small:
      return {0, 700, 1000};  // one that is started ends with a bus that never greets the sender
    case Kind::lossy:
      return {10, 990, 995};  // nearly all wait at the target
  }
  return {};
}

// One thread's events, and what became of them.
class Sender {
 public:
  Sender(std::string target, std::string key, unsigned count, Kind kind)
      : target_{std::move(target), std::nullopt},
        key_(std::move(key)),
        count_(count),
        kind_(kind) {}

  // Returns the first failure.
  std::string run() {
    // Different for each thread, and the same each time.
    std::minstd_rand random(static_cast<unsigned>(key_.back()));
    for (unsigned number = 1; number <= count_; ++number) {
      const auto way = static_cast<unsigned>(random() % 1000);
      OSErr status = send(number, way);
      while (status != noErr && kind_ == Kind::lossy && way < mixture_.posts)
        status = send(number, way);
      if (status != noErr && kind_ != Kind::lossy)
        return key_ + ' ' + std::to_string(number) + ' ' + std::to_string(status);
    }
    while (open_ > 0) std::this_thread::yield();
    return failure_ == 0 || kind_ == Kind::lossy ? ""
                                                 : key_ + " started " + std::to_string(failure_);
  }

 private:
  OSErr send(unsigned number, unsigned way) {
    const char* const method = kind_ == Kind::lossy ? "slow::" : "next::";
    RPCEvent event{"Probe", method, {key_, std::to_string(number)}};
    auto& transport = RPCTransport::shared();
    if (way < mixture_.largePosts) event.arguments.emplace_back(std::size_t{100} << 10U, 'x');
    if (way < mixture_.posts) return transport.post(target_, event);
    if (way < mixture_.asked) {
      const auto answer = transport.ask(target_, event);
      const bool isRight = answer.status != noErr || answer.result == std::to_string(number);
      return isRight ? answer.status : OSErr{paramErr};
    }
    ++open_;
    const bool isStarted =
        transport.start(target_, event, {}, [this](const RPCTransport::Answer& answer) {
          if (answer.status != noErr) failure_ = answer.status;
          --open_;
        });
    return isStarted ? OSErr{noErr} : OSErr{paramErr};
  }

  const RPCTarget target_;
  const std::string key_;
  const unsigned count_;
  const Kind kind_;
  const Mixture mixture_ = mixtureOf(kind_);
  std::atomic<unsigned> open_{0};
  std::atomic<OSErr> failure_{0};
};

}  // namespace

std::string sequence(const std::vector<std::string>& words) {
  const auto count = static_cast<unsigned>(std::stoul(words.at(1)));
  const auto threads = static_cast<unsigned>(std::stoul(words.at(2)));
  const std::string kind = words.size() < 4 ? "" : words[3];
  std::mutex mutex;
  std::string failure;
  std::vector<std::thread> running;
  for (unsigned i = 0; i < threads; ++i) {
    running.emplace_back([&, i] {
      const auto result = Sender(words.at(0), "key-" + std::to_string(i), count,
                                 kind == "small"   ? Kind::small
                                 : kind == "lossy" ? Kind::lossy
                                                   : Kind::all)
                              .run();
      const std::lock_guard lock(mutex);
      if (failure.empty()) failure = result;
    });
  }
  for (std::thread& thread : running) thread.join();
  return failure.empty() ? "ok" : failure;
}

std::string postUntilRefused(const std::vector<std::string>& words) {
  const auto target = RPCTarget{words.at(0), std::nullopt};
  const std::string text(std::stoul(words.at(2)), 'x');
  Clock::duration longest{};
  OSErr status = noErr;
  unsigned number = 0;
  constexpr unsigned most = 20'000;
  while (status == noErr && number < most) {
    const auto start = Clock::now();
    status = RPCTransport::shared().post(
        target, {"Probe", "next::", {words.at(1), std::to_string(number + 1), text}});
    longest = std::max(longest, Clock::now() - start);
    if (status == noErr) ++number;
  }
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(longest).count();
  return "posted " + std::to_string(number) + " status " + std::to_string(status) + " longest " +
         std::to_string(milliseconds);
}

}  // namespace qbdkr::test
