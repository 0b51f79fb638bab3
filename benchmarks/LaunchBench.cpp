// Measures how long a launch takes in hosts of three sizes, and how long it stops their other
// threads. The reference starts the same program as a plain child, from the same host. Each host is
// a process: in one after the other the growth was that of the other load on the machine.

#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "Measure.h"
#include "Platform/Workspace/DetachedProcessLinux.h"

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

void launch() {
  if (!qbdkr::startDetached(program)) fail("the program was not launched");
}

void spawn() {
  pid_t process = 0;
  const std::array<char*, 2> arguments{const_cast<char*>(program.c_str()), nullptr};
  if (posix_spawn(&process, program.c_str(), nullptr, nullptr, arguments.data(), environ) != 0 ||
      waitpid(process, nullptr, 0) != process) {
    fail("the program was not started");
  }
}

// Returns the median of several longest stops, each over 20 rounds of a body.
template <class Body>
double usualStop(OtherThread& other, Body body) {
  std::vector<double> stops;
  for (int sample = 0; sample < 15; ++sample) {
    static_cast<void>(other.longestStop());
    for (int i = 0; i < 20; ++i) body();
    stops.push_back(other.longestStop());
  }
  return median(stops);
}

// A host of its own process, which launches or spawns when it is told to.
class Host {
 public:
  explicit Host(std::size_t size) {
    std::array<int, 2> orders{};
    std::array<int, 2> times{};
    if (pipe2(orders.data(), O_CLOEXEC) != 0 || pipe2(times.data(), O_CLOEXEC) != 0)
      fail("no pipe");
    process_ = fork();
    if (process_ == 0) {
      close(orders[1]);
      serve(size, orders[0], times[1]);
    }
    close(orders[0]);
    close(times[1]);
    orders_ = orders[1];
    times_ = times[0];
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  ~Host() {
    close(orders_);
    close(times_);
    waitpid(process_, nullptr, 0);
  }

  // Returns microseconds: of one launch, of one spawn, or of the longest stop during one of them.
  double tell(char order) const {
    double time = 0;
    if (write(orders_, &order, 1) != 1 || read(times_, &time, sizeof time) != sizeof time) {
      fail("a host has ended");
    }
    return time;
  }

 private:
  [[noreturn]] static void serve(std::size_t size, int orders, int times) {
    const TouchedMemory memory(size);
    char order = 0;
    while (read(orders, &order, 1) == 1) {
      const double time = order == 'L'   ? timeOf(launch)
                          : order == 'S' ? timeOf(spawn)
                                         : longestStops(memory, order == 'l' ? launch : spawn);
      if (write(times, &time, sizeof time) != sizeof time) break;
    }
    _exit(0);
  }

  static double timeOf(void (*body)()) {
    constexpr int rounds = 5;
    const auto start = Clock::now();
    for (int i = 0; i < rounds; ++i) body();
    return microseconds(Clock::now() - start) / rounds;
  }

  static double longestStops(const TouchedMemory& memory, void (*body)()) {
    OtherThread other(memory);
    return usualStop(other, body);
  }

  pid_t process_ = 0;
  int orders_ = -1;
  int times_ = -1;
};

struct Measured {
  Host host;
  std::vector<double> launches{};
  std::vector<double> spawns{};
  explicit Measured(std::size_t size) : host(size) {}
};

}  // namespace

// The hosts take turns: other load on the machine falls on all of them.
int main() {
  // Lets the load wait, if this user may do that: a wait for the processor is no part of a launch.
  const sched_param priority{1};
  sched_setscheduler(0, SCHED_RR, &priority);
  std::array<Measured, 3> hosts{Measured(10 * mebibyte), Measured(1024 * mebibyte),
                                Measured(4096 * mebibyte)};
  constexpr int samples = 100;
  for (int i = 0; i < samples; ++i) {
    for (Measured& one : hosts) {
      one.launches.push_back(one.host.tell('L'));
      one.spawns.push_back(one.host.tell('S'));
    }
  }
  bool holds = true;
  const auto show = [&holds](const Row& row) {
    print(row);
    holds = holds && row.holds();
  };
  const std::array<const char*, 3> names{"launch, 10 MiB touched", "launch, 1 GiB touched",
                                         "launch, 4 GiB touched"};
  for (std::size_t i = 0; i < hosts.size(); ++i) {
    show({names[i], "posix_spawn and its end", median(hosts[i].launches), median(hosts[i].spawns),
          1.5});
    std::printf("%-34s %9.2f us  %-26s %9.2f us\n", "  longest stop of another thread",
                hosts[i].host.tell('l'), "with posix_spawn", hosts[i].host.tell('s'));
  }
  show({names[2], "the same, 10 MiB", median(hosts[2].launches), median(hosts[0].launches), 1.10});
  return holds ? 0 : 1;
}
