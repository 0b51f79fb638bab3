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

// One thread's events, and what became of them.
class Sender {
 public:
  Sender(std::string target, std::string key, unsigned count, bool sendsLargeOnes)
      : target_{std::move(target), std::nullopt},
        key_(std::move(key)),
        count_(count),
        sendsLargeOnes_(sendsLargeOnes) {}

  // Returns the first failure.
  std::string run() {
    // Different for each thread, and the same each time.
    std::minstd_rand random(static_cast<unsigned>(key_.back()));
    for (unsigned number = 1; number <= count_; ++number) {
      const OSErr status = send(number, static_cast<unsigned>(random() % 1000));
      if (status != noErr)
        return key_ + ' ' + std::to_string(number) + ' ' + std::to_string(status);
    }
    while (open_ > 0) std::this_thread::yield();
    return failure_ == 0 ? "" : key_ + " started " + std::to_string(failure_);
  }

 private:
  OSErr send(unsigned number, unsigned way) {
    RPCEvent event{"Probe", "next::", {key_, std::to_string(number)}};
    auto& transport = RPCTransport::shared();
    if (way == 0 && sendsLargeOnes_) event.arguments.emplace_back(std::size_t{100} << 10U, 'x');
    if (way < 700) return transport.post(target_, event);
    // One that is started ends with a bus that never greets the sender.
    if (way < 900 || !sendsLargeOnes_) {
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
  const bool sendsLargeOnes_;
  std::atomic<unsigned> open_{0};
  std::atomic<OSErr> failure_{0};
};

}  // namespace

std::string sequence(const std::vector<std::string>& words) {
  const auto count = static_cast<unsigned>(std::stoul(words.at(1)));
  const auto threads = static_cast<unsigned>(std::stoul(words.at(2)));
  const bool sendsLargeOnes = words.size() < 4;
  std::mutex mutex;
  std::string failure;
  std::vector<std::thread> running;
  for (unsigned i = 0; i < threads; ++i) {
    running.emplace_back([&, i] {
      const auto result =
          Sender(words.at(0), "key-" + std::to_string(i), count, sendsLargeOnes).run();
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
