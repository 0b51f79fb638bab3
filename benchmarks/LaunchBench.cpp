// Measures how long a launch takes in a host of so many MiB, and how long it stops another thread
// of the host. The reference starts the same program as a plain child, from the same host.

#include <poll.h>
#include <sched.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/Workspace/DetachedProcessLinux.h"
#include "Samples.h"

namespace {

using namespace qbdkr::bench;

const std::string program = "/bin/true";

constexpr std::size_t mebibyte = std::size_t{1} << 20U;

// Memory that is really there, page by page, as a host's is.
class TouchedMemory {
 public:
  explicit TouchedMemory(std::size_t size) : size_(size) {
    memory_ = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory_ == MAP_FAILED) fail("no memory");
    madvise(memory_, size, MADV_NOHUGEPAGE);
    for (std::size_t at = 0; at < size; at += 4096) bytes()[at] = 1;
  }
  TouchedMemory(const TouchedMemory&) = delete;
  TouchedMemory& operator=(const TouchedMemory&) = delete;
  ~TouchedMemory() { munmap(memory_, size_); }

  [[nodiscard]] volatile char* bytes() const { return static_cast<volatile char*>(memory_); }
  [[nodiscard]] std::size_t size() const { return size_; }

 private:
  void* memory_;
  std::size_t size_;
};

// Another thread of the host, which writes to its memory and maps more of it. Finds how long it was
// stopped at most.
class OtherThread {
 public:
  explicit OtherThread(const TouchedMemory& memory) : thread_([this, &memory] { run(memory); }) {}
  OtherThread(const OtherThread&) = delete;
  OtherThread& operator=(const OtherThread&) = delete;
  ~OtherThread() {
    done_ = true;
    thread_.join();
  }

  // Returns the longest stop since the last call, in microseconds.
  double longestStop() { return longest_.exchange(0); }

 private:
  void run(const TouchedMemory& memory) {
    std::size_t at = 0;
    auto last = Clock::now();
    while (!done_) {
      memory.bytes()[at] = 2;
      at = (at + 40960) % memory.size();
      void* more = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
      *static_cast<volatile char*>(more) = 1;
      munmap(more, 4096);
      const auto now = Clock::now();
      longest_ = std::max(longest_.load(), microseconds(now - last));
      last = now;
    }
  }

  std::atomic<bool> done_{false};
  std::atomic<double> longest_{0};
  std::thread thread_;
};

// The programs that were launched since the last wait.
std::vector<qbdkr::DetachedProcess> launched;

void launch() {
  auto process = qbdkr::startDetached(program);
  if (!process) fail("the program was not launched");
  launched.push_back(std::move(*process));
}

void spawn() {
  pid_t process = 0;
  const std::array<char*, 2> arguments{const_cast<char*>(program.c_str()), nullptr};
  if (posix_spawn(&process, program.c_str(), nullptr, nullptr, arguments.data(), environ) != 0) {
    fail("the program was not started");
  }
}

// Waits for the end of all programs of both sides, which is no part of their start: one that still
// runs would take a processor from the next start.
void waitForPrograms() {
  while (wait(nullptr) > 0) {
  }
  for (const auto& process : launched) {
    pollfd end{process.ended.get(), POLLIN, 0};
    poll(&end, 1, -1);
  }
  launched.clear();
}

void launchOften() {
  for (int i = 0; i < 20; ++i) launch();
}

void spawnOften() {
  for (int i = 0; i < 20; ++i) spawn();
}

// Prints the longest stops of another thread, each over 20 starts.
void measureStops(const TouchedMemory& memory) {
  OtherThread other(memory);
  const auto sample = [&other](const char* side, void (*body)()) {
    static_cast<void>(other.longestStop());
    body();
    print(side, other.longestStop());
    waitForPrograms();
  };
  for (int i = 0; i < 15; ++i) {
    sample("ours", launchOften);
    sample("theirs", spawnOften);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view what = argc == 3 ? argv[1] : "";
  if (what != "time" && what != "stops") fail("usage: LaunchBench time|stops MEBIBYTES");
  // Lets the load wait, if this user may do that: a wait for the processor is no part of a launch.
  const sched_param priority{1};
  sched_setscheduler(0, SCHED_RR, &priority);
  const TouchedMemory memory(std::stoul(argv[2]) * mebibyte);
  if (what == "time") {
    alternate(200, 1, launch, spawn, waitForPrograms);
  } else {
    measureStops(memory);
  }
}
