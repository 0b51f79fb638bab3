// A host of the benchmarks, which does one thing and prints its samples.

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <thread>

#include <ClientComm/QBHPAppleEventSender.h>
#include <QBDKRProductClient/QBHPHelper.h>

#include "Samples.h"

namespace {

using namespace qbdkr::bench;
using qbdkr::QBHPHelper;
using qbdkr::QBHPHelperCommunicate;

// Sends one event, and says so.
void sendFirstEvent() {
  const std::array<std::string_view, 1> arguments{"0"};
  if (qbdkr::QBHPAppleEventSender::share().sendEvnet("Echo", "entry:", arguments) != 0) {
    fail("the first event was not posted");
  }
  if (write(STDOUT_FILENO, "x", 1) != 1) fail("nobody reads");
  _exit(0);
}

// Ends in the middle of the deployment.
void measureStart() {
  print("ours", timeOf([] { QBHPHelper::share(); }));
  _exit(0);
}

// Does the work of a tick more often than the timer does. Some of it is done every 10 s at most:
// here each tick does all of it.
void tick() {
  const auto timer = qbdkr::RunLoop::main().scheduleTimer(
      std::chrono::seconds(12), [](const auto& /*timer*/) { QBHPHelper::share().startHelper(); });
  qbdkr::RunLoop::main().run();
}

std::size_t threadsOfThisProcess() {
  DIR* tasks = opendir("/proc/self/task");
  if (tasks == nullptr) fail("no /proc");
  std::size_t count = 0;
  while (const dirent* entry = readdir(tasks)) count += entry->d_name[0] != '.' ? 1 : 0;
  closedir(tasks);
  return count;
}

// Notes how many threads the process has at most.
class ThreadCount {
 public:
  ThreadCount() : before_(threadsOfThisProcess()), thread_([this] { run(); }) {}
  ThreadCount(const ThreadCount&) = delete;
  ThreadCount& operator=(const ThreadCount&) = delete;
  ~ThreadCount() {
    done_ = true;
    thread_.join();
  }

  // Returns the threads that were made since, without this object's own.
  [[nodiscard]] std::size_t mostAdded() const { return most_ > before_ ? most_ - before_ - 1 : 0; }
  [[nodiscard]] bool isQuiet() const { return threadsOfThisProcess() <= before_ + 1; }

 private:
  void run() {
    while (!done_) most_ = std::max(most_.load(), threadsOfThisProcess());
  }

  const std::size_t before_;
  std::atomic<bool> done_{false};
  std::atomic<std::size_t> most_{0};
  std::thread thread_;
};

// Waits until the helper agent is installed and launched.
void startUp() {
  QBHPHelper::share();
  const auto deadline = Clock::now() + std::chrono::seconds(20);
  while (QBHPHelperCommunicate::share().restartHelperInThread() != 0) {
    if (Clock::now() > deadline) fail("the helper agent does not run");
    std::this_thread::yield();
  }
  while (threadsOfThisProcess() > 1 && Clock::now() < deadline) std::this_thread::yield();
}

void measureBurst() {
  startUp();
  auto& communicator = QBHPHelperCommunicate::share();
  constexpr int requests = 1000;
  const ThreadCount threads;
  const auto settle = [&threads] {
    while (!threads.isQuiet()) std::this_thread::yield();
    QBHPHelper::share().productCollectStatus();
  };
  alternate(
      11, 1,
      [&communicator] {
        for (int i = 0; i < requests; ++i) {
          if (communicator.showHelper() != 0) fail("a guarded request failed");
        }
      },
      [&communicator] {
        for (int i = 0; i < requests; ++i) {
          if (communicator.productReadyToUpgrade(true) != 0) fail("a request failed");
        }
      },
      settle);
  print("threads", static_cast<double>(threads.mostAdded()));
  _exit(0);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view what = argc == 2 ? argv[1] : "";
  if (what == "first-event") {
    sendFirstEvent();
  } else if (what == "start") {
    measureStart();
  } else if (what == "idle") {
    QBHPHelper::share();
    qbdkr::RunLoop::main().run();
  } else if (what == "tick") {
    QBHPHelper::share();
    tick();
  } else if (what == "burst") {
    measureBurst();
  } else {
    fail("usage: Host first-event|start|idle|tick|burst");
  }
}
