#include "support/LimitedRequests.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <coroutine>
#include <exception>
#include <fstream>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <stop_token>
#include <thread>

#include <ClientComm/AwaitRequest.h>
#include <ClientComm/QBHPAppleEventSender.h>
#include <ClientComm/Request.h>
#include <ClientComm/RunLoop.h>

#include "support/LiveMemory.h"
#include "support/ProbeText.h"

namespace qbdkr::test {
namespace {

using Clock = std::chrono::steady_clock;
using Words = std::vector<std::string>;

// EVENT, from a place in the words on.
struct Event {
  Event(const Words& words, std::size_t from)
      : texts(decoded(std::span(words).subspan(from))), arguments(texts.begin() + 3, texts.end()) {}

  [[nodiscard]] Request<String> request() const {
    return QBHPAppleEventSender::share().askEvnet(texts[0], texts[1], texts[2], arguments);
  }

  // The same event with a number as its only argument.
  [[nodiscard]] Request<String> request(unsigned long number) const {
    const std::string text = std::to_string(number);
    const std::array<std::string_view, 1> one{text};
    return QBHPAppleEventSender::share().askEvnet(texts[0], texts[1], texts[2], one);
  }

  std::vector<std::string> texts;
  std::vector<std::string_view> arguments;
};

RequestLimits limitsOf(const std::string& time) {
  if (time == "-") return {};
  return RequestLimits::within(std::chrono::milliseconds(std::stol(time)));
}

std::string told(const Answer<String>& answer) {
  return std::to_string(answer.status) + ' ' + encoded(answer.value);
}

std::string microsecondsSince(Clock::time_point time) {
  return std::to_string(
      std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - time).count());
}

std::string waitWithin(const RequestLimits& limits, const Event& event) {
  const auto request = event.request();
  const auto begin = Clock::now();
  const auto answer = request.wait(limits);
  return told(answer) + ' ' + microsecondsSince(begin);
}

Cancellation named(const std::string& name) {
  static std::mutex mutex;
  static auto& handles = *new std::map<std::string, Cancellation>;
  const std::lock_guard lock(mutex);
  return handles[name];
}

std::string startOn(const Words& words) {
  struct Outcome {
    Answer<String> answer;
    bool onMainThread = false;
    bool insideTheCall = false;
  };
  const std::string& place = words.at(0);
  const Event event(words, 2);
  Executor executor;
  if (place == "thread") executor = [](auto task) { std::thread(std::move(task)).detach(); };
  if (place == "inline") executor = [](auto task) { task(); };
  const auto outcome = std::make_shared<std::promise<Outcome>>();
  auto come = outcome->get_future();
  const auto caller = std::this_thread::get_id();
  const auto request = event.request();
  const auto limits = limitsOf(words.at(1));
  const auto begin = Clock::now();
  request.start(
      limits,
      [outcome, caller, throws = place == "throwing"](Answer<String> answer) {
        outcome->set_value(
            {std::move(answer), gettid() == getpid(), std::this_thread::get_id() == caller});
        if (throws) throw std::runtime_error("a completion that throws");
      },
      executor);
  const std::string time = microsecondsSince(begin);
  const Outcome result = come.get();
  return told(result.answer) + (result.onMainThread ? " main-thread" : " other-thread") +
         (result.insideTheCall ? " inside " : " outside ") + time;
}

// Counts how each of many requests ended.
class Outcomes {
 public:
  explicit Outcomes(std::size_t count) : endings_(count) {}

  Completion<String> completion(std::size_t number) {
    return [this, number](const Answer<String>& answer) {
      const std::lock_guard lock(mutex_);
      if (endings_[number]++ > 0) ++twice_;
      ++statuses_[answer.status];
      ++count_;
      changed_.notify_all();
    };
  }

  void waitFor(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return count_ >= count; });
  }

  std::size_t count() {
    const std::lock_guard lock(mutex_);
    return count_;
  }

  std::string told() {
    const std::lock_guard lock(mutex_);
    std::string text = "twice=" + std::to_string(twice_);
    for (const auto& [status, count] : statuses_) {
      text += ' ' + std::to_string(status) + '=' + std::to_string(count);
    }
    return text;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<unsigned> endings_;
  std::map<OSErr, std::size_t> statuses_;
  std::size_t count_ = 0;
  std::size_t twice_ = 0;
};

long ofStatus(const std::string& key) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    long value = 0;
    if (word == key && status >> value) return value;
  }
  return -1;
}

// Posts an event, which is sent after all requests that this thread has started.
void fence(const Event& event) {
  QBHPAppleEventSender::share().sendEvnet(event.texts[0], "Probe", "fence", {});
}

std::string startMany(const Words& words) {
  const auto count = std::stoul(words.at(0));
  const Event event(words, 1);
  Outcomes outcomes(count);
  RequestLimits limits;
  limits.cancellation = Cancellation();
  const auto request = event.request();
  for (std::size_t i = 0; i < count; ++i) request.start(limits, outcomes.completion(i));
  fence(event);
  const long threads = ofStatus("Threads:");
  const auto early = outcomes.count();
  const auto begin = Clock::now();
  limits.cancellation->cancel();
  outcomes.waitFor(count);
  return "early=" + std::to_string(early) + ' ' + outcomes.told() +
         " us=" + microsecondsSince(begin) + " threads=" + std::to_string(threads);
}

std::string startInTurn(const Words& words) {
  const auto count = std::stoul(words.at(0));
  const Event event(words, 1);
  Outcomes outcomes(count);
  for (std::size_t i = 0; i < count; ++i) {
    constexpr std::size_t everyTenth = 10;
    constexpr std::size_t everyHundredth = 100;
    if (i % everyHundredth == 7) {
      outcomes.completion(i)(event.request(i).wait());
    } else if (i % everyHundredth == 8) {
      outcomes.completion(i)(event.request(i).wait(RequestLimits::within(std::chrono::minutes(1))));
    } else if (i % everyTenth > 0 && i % everyTenth < 4) {  // the first one is started
      const std::string number = std::to_string(i);
      const std::array<std::string_view, 1> one{number};
      const auto status = QBHPAppleEventSender::share().sendEvnet(event.texts[0], event.texts[1],
                                                                  event.texts[2], one);
      outcomes.completion(i)({status, std::nullopt});
    } else {
      event.request(i).start({}, outcomes.completion(i));
    }
  }
  outcomes.waitFor(count);
  return outcomes.told();
}

std::string cancelMany(const Words& words) {
  constexpr std::size_t perRound = 500;
  const auto rounds = std::stoul(words.at(0)) / perRound;
  const Event event(words, 1);
  Outcomes outcomes(rounds * perRound);
  const auto request = event.request();
  long warm = 0;
  for (std::size_t round = 0; round < rounds; ++round) {
    RequestLimits limits;
    limits.cancellation = Cancellation();
    for (std::size_t i = 0; i < perRound; ++i) {
      request.start(limits, outcomes.completion(round * perRound + i));
    }
    outcomes.waitFor(round * perRound + 1 + round % perRound);
    limits.cancellation->cancel();
    outcomes.waitFor((round + 1) * perRound);
    if (round == rounds / 10) warm = ofStatus("VmRSS:");
  }
  return outcomes.told() + " growth=" + std::to_string(ofStatus("VmRSS:") - warm);
}

// Counts the completions of end-mixed since the process started: one that comes too often, or too
// late, makes the count wrong.
std::atomic<std::size_t> mixedCompletions{0};

// The outcomes of one round of end-mixed.
class MixedOutcomes {
 public:
  explicit MixedOutcomes(std::size_t count) : outcomes_(count) {}

  // Returns the completion of a request, which must have this status.
  static Completion<String> completion(const std::shared_ptr<MixedOutcomes>& self,
                                       std::size_t number, OSErr status) {
    return [self, status, count = self->outcomes_.completion(number)](Answer<String> answer) {
      ++mixedCompletions;
      if (answer.status != status || answer.value) ++self->wrong_;
      count(std::move(answer));
    };
  }

  void countWait(const Answer<String>& answer, OSErr status) {
    if (answer.status != status || answer.value) ++wrong_;
  }

  std::string told(std::size_t count) {
    outcomes_.waitFor(count);
    return "wrong=" + std::to_string(wrong_) + ' ' + outcomes_.told();
  }

 private:
  Outcomes outcomes_;
  std::atomic<std::size_t> wrong_{0};
};

// Ends requests in many ways, with one Request for each, which is dropped at once.
std::string endMixed(const Words& words) {
  const auto count = std::stoul(words.at(0));
  const Event event(words, 1);
  const auto outcomes = std::make_shared<MixedOutcomes>(count);
  const Cancellation together;
  std::stop_source source;
  std::vector<std::stop_source> sources;
  const Executor atOnce = [](auto task) { task(); };
  const auto never = RequestLimits::Clock::time_point::max();
  const auto late = RequestLimits::Clock::now() + std::chrono::minutes(10);
  for (std::size_t i = 0; i < count; ++i) {
    const auto start = [&](const RequestLimits& limits, OSErr status) {
      event.request().start(limits, MixedOutcomes::completion(outcomes, i, status),
                            i % 3 == 0 ? atOnce : Executor());
    };
    switch (i % 8) {
      case 0:
        start({never, together}, userCanceledErr);
        break;
      case 1:
        start({late, source.get_token()}, userCanceledErr);
        break;
      case 2: {
        const Cancellation own;
        start({never, own}, userCanceledErr);
        own.cancel();
        break;
      }
      case 3:
        sources.emplace_back();
        start({never, sources.back().get_token()}, userCanceledErr);
        break;
      case 4:
        start(RequestLimits::within(std::chrono::milliseconds(i % 20)), errAETimeout);
        break;
      case 5: {
        const Cancellation before;
        before.cancel();
        start({late, before}, userCanceledErr);
        break;
      }
      case 6:
        start({RequestLimits::Clock::now(), together}, errAETimeout);
        break;
      default:
        start({late, together}, userCanceledErr);
    }
  }
  constexpr int waitingThreads = 4;
  std::vector<std::thread> threads;
  for (int i = 0; i < waitingThreads; ++i) {
    threads.emplace_back([&, i] {
      RequestLimits limits{late, source.get_token()};
      if (i == 0) limits = RequestLimits::within(std::chrono::milliseconds(5));
      outcomes->countWait(event.request().wait(limits), i == 0 ? errAETimeout : userCanceledErr);
    });
  }
  threads.emplace_back([&sources] {
    for (auto& each : sources) each.request_stop();
  });
  together.cancel();
  source.request_stop();
  for (auto& thread : threads) thread.join();
  return outcomes->told(count);
}

// The child's part of fork-with-pending.
std::string childsWords(const RequestLimits& parents, Outcomes& outcomes, const Event& event) {
  const auto before = outcomes.count();
  parents.cancellation->cancel();
  const auto posted = QBHPAppleEventSender::share().sendEvnet(event.texts[0], "Probe", "note:", {});
  const auto waited = event.request().wait(RequestLimits::within(std::chrono::milliseconds(100)));
  return "posted " + std::to_string(posted) + " waited " + std::to_string(waited.status) +
         " completed " + std::to_string(outcomes.count() - before);
}

std::string forkWithPending(const Words& words) {
  const auto count = std::stoul(words.at(0));
  const Event event(words, 1);
  Outcomes outcomes(count);
  RequestLimits limits;
  limits.cancellation = Cancellation();
  for (std::size_t i = 0; i < count; ++i) event.request().start(limits, outcomes.completion(i));
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) return "no pipe";
  const pid_t child = fork();
  if (child == 0) {
    const std::string text = childsWords(limits, outcomes, event);
    [[maybe_unused]] const auto written = ::write(ends[1], text.data(), text.size());
    _exit(0);
  }
  ::close(ends[1]);
  constexpr int patience = 20'000;  // milliseconds
  pollfd told{ends[0], POLLIN, 0};
  std::array<char, 200> text{};
  ssize_t size = 0;
  if (::poll(&told, 1, patience) > 0) size = ::read(ends[0], text.data(), text.size());
  if (size <= 0) ::kill(child, SIGKILL);
  ::close(ends[0]);
  int ended = 0;
  ::waitpid(child, &ended, 0);
  const auto early = outcomes.count();
  limits.cancellation->cancel();
  outcomes.waitFor(count);
  return std::string(text.data(), size > 0 ? static_cast<std::size_t>(size) : 0) + " ended " +
         std::to_string(ended) + " early " + std::to_string(early) + ' ' + outcomes.told();
}

// A coroutine that runs by itself.
struct Detached {
  struct promise_type {
    Detached get_return_object() { return {}; }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_void() {}
    void unhandled_exception() { std::terminate(); }
  };
};

Detached awaitTwice(Request<String> request, std::string time, std::promise<std::string>& result) {
  const auto first = co_await within(limitsOf(time), request);
  const std::string where = gettid() == getpid() ? " main-thread " : " other-thread ";
  const auto second = co_await within(limitsOf(time), request, [](auto task) { task(); });
  result.set_value(told(first) + where + told(second));
}

std::string resources() {
  return std::to_string(mixedCompletions) + ' ' + std::to_string(liveMemory());
}

std::string await(const Words& words) {
  std::promise<std::string> result;
  auto come = result.get_future();
  awaitTwice(Event(words, 1).request(), words.at(0), result);
  return come.get();
}

}  // namespace

const std::map<std::string, std::function<std::string(const Words&)>>& limitedCommands() {
  static const auto& table = *new std::map<std::string, std::function<std::string(const Words&)>>{
      {"wait-within",
       [](const Words& words) { return waitWithin(limitsOf(words.at(0)), Event(words, 1)); }},
      {"wait-named",
       [](const Words& words) {
         RequestLimits limits;
         limits.cancellation = named(words.at(0));
         return waitWithin(limits, Event(words, 1));
       }},
      {"cancel",
       [](const Words& words) {
         const auto begin = Clock::now();
         named(words.at(0)).cancel();
         return microsecondsSince(begin);
       }},
      {"start-on", startOn},
      {"start-many", startMany},
      {"start-in-turn", startInTurn},
      {"cancel-many", cancelMany},
      {"end-mixed", endMixed},
      {"resources", [](const Words&) { return resources(); }},
      {"fork-with-pending", forkWithPending},
      {"await", await},
  };
  return table;
}

}  // namespace qbdkr::test
