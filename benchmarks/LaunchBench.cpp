// Measures how long a launch takes in hosts of three sizes, and how long it stops their other
// threads. The reference starts the same program as a plain child, from the same host.

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

Row measureWith(const char* name, std::size_t size) {
  const TouchedMemory memory(size);
  const Row row =
      measure({name, "posix_spawn and its end", 0, 0, 1.5}, 60, 5, launch, spawn, [] {});
  print(row);
  OtherThread other(memory);
  const double launching = usualStop(other, launch);
  const double spawning = usualStop(other, spawn);
  std::printf("%-34s %9.2f us  %-26s %9.2f us\n", "  longest stop of another thread", launching,
              "with posix_spawn", spawning);
  return row;
}

}  // namespace

int main() {
  const Row small = measureWith("launch, 10 MiB touched", 10 * mebibyte);
  const Row medium = measureWith("launch, 1 GiB touched", 1024 * mebibyte);
  const Row large = measureWith("launch, 4 GiB touched", 4096 * mebibyte);
  const Row growth{"launch, 4 GiB touched", "the same, 10 MiB", large.ours, small.ours, 1.10};
  print(growth);
  return small.holds() && medium.holds() && large.holds() && growth.holds() ? 0 : 1;
}
